#include <cerrno>
#include <clocale>
#include <gmock/gmock.h>
#include <memory>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jgenericerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/error/jstackerror.h"
#include "tests/support/logcapture.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;

struct TextCase {
  const char* name;
  std::shared_ptr<const JError> error;
  const char* text;
};

class ErrorText : public testing::TestWithParam<TextCase> {};

TEST_P(ErrorText, IsTheSystemsOwnAndNeverOverrunsItsBuffer) {
  EXPECT_EQ(GetParam().error->getMessage(), GetParam().text);
  const std::string sWhole = GetParam().text;
  const bool bAllOrNothing = dynamic_cast<const JGenericErrorBase*>(GetParam().error.get()) != nullptr;
  for (std::size_t size = 1; size <= sWhole.size() + 1; ++size) {
    std::string sBuffer(size + 1, '#');
    GetParam().error->getMessage(sBuffer.data(), size);
    const bool bFits = sWhole.size() < size;
    EXPECT_EQ(std::string(sBuffer.c_str()), bAllOrNothing && !bFits ? "" : sWhole.substr(0, size - 1));
    EXPECT_EQ(sBuffer[size], '#');
  }
}

INSTANTIATE_TEST_SUITE_P(
    Error, ErrorText,
    testing::Values(
        TextCase{"Socket", std::make_shared<JSysError>(0x40000000U, "x"),
                 "system call error at function 'x' : The operation completed successfully"},
        TextCase{"SocketUnknown", std::make_shared<JSysError>(0x40000001U, "x"),
                 "system call error at function 'x' : Unknown socket error"},
        TextCase{"SocketRefused", std::make_shared<JSysError>(0x40000000U | 10061U, "WSAConnect"),
                 "system call error at function 'WSAConnect' : No connection could be made because the "
                 "target machine "
                 "actively refused it"},
        TextCase{"System", std::make_shared<JSysError>(ENOENT, "open"),
                 "system call error at function 'open' : No such file or directory"},
        TextCase{"SystemUnknown", std::make_shared<JSysError>(99999U, "open"),
                 "system call error at function 'open' : unknown error"},
        TextCase{"AudioOutput", std::make_shared<JSysError>(0xC0000002U, "waveOutOpen"),
                 "system call error at function 'waveOutOpen' : unknown error"},
        TextCase{"NoSpaceLeft", std::make_shared<JNoSpaceLeftError>(ENOSPC, "write"),
                 "system call error at function 'write' : No space left on device"},
        TextCase{"NtStatus", std::make_shared<JNtDllError>(0xC0000034U, "NtOpenFile"),
                 "system call error at function 'NtOpenFile' : unknown error (NT status = 0xc0000034)"},
        TextCase{"Text", std::make_shared<JTextError>("%d of %s", 3, "four"), "3 of four"},
        TextCase{"TextPlain", std::make_shared<JTextError>(std::string("100%s")), "100%s"},
        TextCase{"Generic", std::make_shared<JGenericError<unsigned, 0>>("m", "f", "", "a.cpp", 7),
                 "a.cpp(7) : function f : m"},
        TextCase{"GenericDetail", std::make_shared<JGenericError<unsigned, 0>>("m", "f", "d", "a.cpp", 7),
                 "a.cpp(7) : function f(d) : m"},
        TextCase{"Timeout", std::make_shared<JTimeoutError>(), "Time out!"},
        TextCase{"NullPointer", std::make_shared<JNullPointerError>("pOther"),
                 "Unexpected null pointer: 'pOther'"},
        TextCase{"Unimplemented", std::make_shared<JUnimplementedError>(), "Unimplemented!"},
        TextCase{"BufferSize", std::make_shared<JBufferSizeError>(), "Buffer size too small!"},
        TextCase{"EndOfFile", std::make_shared<EndOfFileError>(), "end of file!"},
        TextCase{"XmlParams", std::make_shared<JXmlParamsError>("p", "s"),
                 "XmlParamsError: Param p in SubNode s"},
        TextCase{"FuncMap", std::make_shared<qm_utils::JFuncMapError>("f"), "couldn't find \"f\" function"},
        TextCase{"RpcMissing", std::make_shared<JRPCMissingParameterError>("p"), "RPCMissingParameter: 'p'"},
        TextCase{"RpcMismatch", std::make_shared<JRPCTypeMismatchError>("p", 3, 5),
                 "TypeMismatch for parameter 'p' : wanted '3', actual '5'"},
        TextCase{"RpcProtocol", std::make_shared<JRPCProtocolError>("pong"), "ProtocolError: pong '???'"},
        TextCase{"RpcProtocolNull", std::make_shared<JRPCProtocolError>(nullptr, "x"),
                 "ProtocolError: Unknown error 'x'"},
        TextCase{"RpcLost", std::make_shared<JRPCConnectionLostError>(), "Connection Lost"},
        TextCase{"RpcFailed", std::make_shared<JRPCCallFailedError>("FAILED Error=\"no\""),
                 "FAILED Error=\"no\""}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Error, LongTextsAreCutWhereTheirClassSaysSo) {
  EXPECT_THAT(JTextError("%s", std::string(400, 'x').c_str()).getMessage(), SizeIs(255));
  EXPECT_THAT(JTextError(std::string(400, 'x')).getMessage(), SizeIs(255));
  JTimeoutError error;
  error.setSite(std::string(300, 'f').c_str(), 12);
  EXPECT_EQ(error.getFile(), std::string(255, 'f'));
  EXPECT_EQ(error.getLine(), 12);
  EXPECT_THAT(JGenericErrorBase(std::string(3000, 'm'), "f", "", "a.cpp", 1).getMessage(), IsEmpty());
}

TEST(Error, LoggingFormsGiveLevelSiteAndTag) {
  const qm_test::LogCapture log;
  JTextError error("lost %d", 3);
  error.setSite("there.cpp", 41);
  const int iLine = __LINE__ + 1;
  JCATCH_LOG(&error);
  error.report();
  const int iOne = 1;
  JASSERT(iOne == 2);
  JFATAL_ASSERT(iOne == 3);
  JASSERT(iOne == 1);

  const auto messages = log.messages();
  ASSERT_THAT(messages, SizeIs(4));
  EXPECT_EQ(messages[0].text, "lost 3");
  EXPECT_EQ(messages[0].level, 10);
  EXPECT_EQ(messages[0].file, "error_texts_test.cpp");
  EXPECT_EQ(messages[0].line, iLine);
  EXPECT_EQ(messages[0].tag, "Exception CATCH");
  EXPECT_EQ(messages[1].file, "there.cpp");
  EXPECT_EQ(messages[1].line, 41);
  EXPECT_EQ(messages[1].tag, "Exception REPORT");
  EXPECT_EQ(messages[2].text, "ASSERTION FAILED (iOne == 2)");
  EXPECT_EQ(messages[2].level, 11);
  EXPECT_THAT(messages[2].file, IsEmpty());
  EXPECT_EQ(messages[3].text, "FATAL ASSERTION FAILED !! (iOne == 3)");
  EXPECT_EQ(messages[3].level, 12);
}

TEST(Error, CallFailedWithoutBufferFailsItsAssertion) {
  const qm_test::LogCapture log;
  char szBuf[4] = "abc";
  const JRPCCallFailedError error("FAILED x");
  error.getMessage(nullptr, 4);
  error.getMessage(szBuf, 0);
  EXPECT_STREQ(szBuf, "abc");
  EXPECT_THAT(log.messages(), SizeIs(2));
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (szBuf && iBufLen)"));
}

TEST(Error, TextsIgnoreTheHostsLocale) {
  ASSERT_EQ(std::localeconv()->decimal_point, std::string(","));
  EXPECT_EQ(JTextError("%g", 2.5).getMessage(), "2.5");
}

TEST(StackErrorTest, KeepsTheNewestMessagesAndGivesThemNewestFirst) {
  StackError stack;
  for (int i = 1; i <= 7; ++i) {
    EXPECT_EQ(stack.push("failure %d", i), "failure " + std::to_string(i));
  }
  for (int i = 7; i >= 3; --i) {
    EXPECT_EQ(stack.pop(), "failure " + std::to_string(i));
  }
  EXPECT_EQ(stack.pop(), "");
  EXPECT_THAT(stack.push("%s", std::string(3000, 'x').c_str()), SizeIs(2047));
}

}  // namespace
