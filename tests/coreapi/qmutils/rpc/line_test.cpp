#include <cstring>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jrpcerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/rpc/linebuffer.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"

namespace {

using qm_test::thrownBy;
using qm_utils::LineBuffer;
using testing::ElementsAre;
using testing::ElementsAreArray;
namespace rpc_line = qm_utils::rpc_line;

/// Puts bytes into a buffer in pieces and returns the lines that come out.
std::vector<std::string> linesOf(LineBuffer& buffer, std::string_view sBytes, std::size_t uPiece) {
  std::vector<std::string> lines;
  while (!sBytes.empty()) {
    const std::span<char> room = buffer.makeRoom();
    const std::size_t uBytes = sBytes.copy(room.data(), std::min(uPiece, room.size()));
    buffer.addFilled(uBytes);
    sBytes.remove_prefix(uBytes);
    while (const auto line = buffer.takeLine()) {
      EXPECT_EQ(line->data()[line->size()], '\0');
      lines.emplace_back(*line);
    }
  }
  return lines;
}

struct FramingCase {
  const char* name;
  std::string bytes;
  std::vector<std::string> lines;
};

void PrintTo(const FramingCase& row, std::ostream* out) {
  *out << row.name;
}

class Framing : public testing::TestWithParam<FramingCase> {};

TEST_P(Framing, GivesTheSameLinesInPiecesOfAnySize) {
  for (const std::size_t uPiece : {1U, 2U, 3U, 7U, 4096U}) {
    LineBuffer buffer(1 << 20);
    EXPECT_THAT(linesOf(buffer, GetParam().bytes, uPiece), ElementsAreArray(GetParam().lines))
        << "in pieces of " << uPiece;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rpc, Framing,
    testing::Values(
        FramingCase{"CrLf", "one\r\ntwo\r\n", {"one", "two"}},
        FramingCase{"LfAlone", "one\ntwo\n", {"one", "two"}},
        FramingCase{"Mixed", "one\ntwo\r\n\r\n\nfive\r\n", {"one", "two", "", "", "five"}},
        FramingCase{"CrInside", "a\rb\r\r\n", {"a\rb\r"}}, FramingCase{"NoEnd", "one\r\nhalf", {"one"}},
        FramingCase{"NoEndButCr", "one\r\nhalf\r", {"one"}},
        FramingCase{"Nul", std::string("a\0b\r\n", 5), {std::string("a\0b", 3)}},
        FramingCase{"Long", std::string(1000, 'x') + "\r\nshort\r\n", {std::string(1000, 'x'), "short"}}));

TEST(LineBuffer, GrowsWithALineAndStaysGrown) {
  LineBuffer buffer(1 << 20);
  EXPECT_EQ(buffer.getCapacity(), 256U);
  linesOf(buffer, std::string(1000, 'x') + "\n", 256);
  const std::size_t uGrown = buffer.getCapacity();
  EXPECT_GE(uGrown, 1001U);
  EXPECT_LE(uGrown, 4096U);
  linesOf(buffer, "short\n", 256);
  EXPECT_EQ(buffer.getCapacity(), uGrown);
}

TEST(LineBuffer, TakesALineOfTheLimitAndNoLonger) {
  LineBuffer buffer(300);
  EXPECT_THAT(linesOf(buffer, std::string(300, 'a') + "\r\n", 7), ElementsAre(std::string(300, 'a')));
  EXPECT_EQ(thrownBy([&] { linesOf(buffer, std::string(301, 'b') + "\n", 64); }),
            "line longer than 300 bytes");
  EXPECT_EQ(thrownBy([&] { buffer.takeLine(); }), "line longer than 300 bytes");
}

TEST(LineBuffer, RefusesAnEndlessLineAtTheLimit) {
  LineBuffer buffer(300);
  EXPECT_EQ(thrownBy([&] { linesOf(buffer, std::string(1U << 20, 'a'), 64); }), "line longer than 300 bytes");
  EXPECT_LE(buffer.getCapacity(), 1024U);
}

TEST(LineBuffer, GivesBytesBehindALineOut) {
  LineBuffer buffer(300);
  EXPECT_THAT(linesOf(buffer, "head\r\nbody", 64), ElementsAre("head"));
  char bytes[16] = {};
  EXPECT_EQ(buffer.takeBytes(bytes, 3), 3U);
  EXPECT_EQ(buffer.takeBytes(bytes + 3, sizeof bytes - 3), 1U);
  EXPECT_STREQ(bytes, "body");
  EXPECT_THAT(linesOf(buffer, "next\n", 64), ElementsAre("next"));
}

// Requests.

struct RequestCase {
  const char* name;
  std::string line;
  std::string function;
  std::string parameters;
  std::string error;
};

void PrintTo(const RequestCase& row, std::ostream* out) {
  *out << row.name;
}

class RequestLine : public testing::TestWithParam<RequestCase> {};

TEST_P(RequestLine, IsTakenApart) {
  const RequestCase& row = GetParam();
  std::string sFunction;
  std::string sParameters;
  EXPECT_EQ(thrownBy([&] {
              const rpc_line::Request request = rpc_line::splitRequest(row.line);
              sFunction = request.sFunction;
              sParameters = request.sParameters;
            }),
            row.error);
  EXPECT_EQ(sFunction, row.function);
  EXPECT_EQ(sParameters, row.parameters);
}

const char* const kSyntax = "ProtocolError: function name syntax error '";
const char* const kMissing = "ProtocolError: missing function name '";

INSTANTIATE_TEST_SUITE_P(
    Rpc, RequestLine,
    testing::Values(RequestCase{"Plain", "f(a=1)", "f", "a=1", ""},
                    RequestCase{"NoParameters", "f()", "f", "", ""},
                    RequestCase{"Blanks", " \tget_9 \t( a=1 ) \t", "get_9", " a=1 ", ""},
                    RequestCase{"HighBytes", "gr\xC3\xBC\xC3\x9F(a=1)", "gr\xC3\xBC\xC3\x9F", "a=1", ""},
                    RequestCase{"BracketsInside", "f(a=\")\")", "f", "a=\")\"", ""},
                    RequestCase{"NoName", "(a=1)", "", "a=1", ""},
                    RequestCase{"Empty", "", "", "", std::string(kSyntax) + "'"},
                    RequestCase{"OnlyBlanks", " \t", "", "", std::string(kSyntax) + " \t'"},
                    RequestCase{"NoBrackets", "f", "", "", std::string(kMissing) + "f'"},
                    RequestCase{"PingWithBlank", "PING ", "", "", std::string(kMissing) + "PING '"},
                    RequestCase{"DotInName", "a.b()", "", "", std::string(kMissing) + "a.b()'"},
                    RequestCase{"NotClosed", "f(a=1", "", "", std::string(kSyntax) + "f(a=1'"},
                    RequestCase{"OnlyOpened", "f(", "", "", std::string(kSyntax) + "f('"},
                    RequestCase{"BehindTheBracket", "f() x", "", "", std::string(kSyntax) + "f() x'"},
                    RequestCase{"Nul", std::string("f(a=1\0)", 7), "", "", std::string(kSyntax) + "f(a=1'"}));

TEST(RequestLine, IsBuiltFromEveryFormOfParameters) {
  JVariant second("b", "x\r\ny");
  JVariant first("a", 1, &second);
  const JVariant third("c", true);
  const std::vector<const JVariant*> chains = {&first, nullptr, &third};
  std::string sLine;
  rpc_line::appendCall(sLine, "f", &first);
  EXPECT_EQ(sLine, "f(a=1, b=\"x\\r\\ny\")");
  sLine.clear();
  rpc_line::appendCall(sLine, "f", static_cast<const JVariant*>(nullptr));
  rpc_line::appendCall(sLine, "g", " a=2 ");
  rpc_line::appendCall(sLine, "h", chains);
  EXPECT_EQ(sLine, "f()g( a=2 )h(a=1, b=\"x\\r\\ny\",,c=true)");
}

// Answers.

struct AnswerCase {
  const char* name;
  std::string line;
  std::string text;
  std::string error;
};

void PrintTo(const AnswerCase& row, std::ostream* out) {
  *out << row.name;
}

class AnswerLine : public testing::TestWithParam<AnswerCase> {};

TEST_P(AnswerLine, IsDecoded) {
  const AnswerCase& row = GetParam();
  std::string sText;
  EXPECT_EQ(thrownBy([&] { rpc_line::parseAnswer(row.line, "fun")->toText(sText); }), row.error);
  EXPECT_EQ(sText, row.text);
}

const char* const kOutOfForm = "ProtocolError: fun '???'";

INSTANTIATE_TEST_SUITE_P(
    Rpc, AnswerLine,
    testing::Values(AnswerCase{"List", "OK b=2, a=1", "a=1, b=2", ""}, AnswerCase{"EmptyList", "OK ", "", ""},
                    AnswerCase{"NoBlank", "OK", "", kOutOfForm}, AnswerCase{"Empty", "", "", kOutOfForm},
                    AnswerCase{"LowerCase", "ok a=1", "", kOutOfForm},
                    AnswerCase{"Pong", "PONG", "", kOutOfForm},
                    AnswerCase{"Nul", std::string("OK a=1\0", 7), "", kOutOfForm},
                    AnswerCase{"FailedWithoutBlank", "FAILED", "", kOutOfForm},
                    AnswerCase{"Failed", "FAILED no such source", "", "FAILED no such source"},
                    AnswerCase{"FailedEmpty", "FAILED ", "", "FAILED "},
                    AnswerCase{"NoList", "OK a", "",
                               "SyntaxError for parameter: 'a' ('garbage instead of '='')"}));

TEST(FailureLine, StaysOneLineOfBoundedLength) {
  std::string sLine;
  rpc_line::writeFailure(sLine, JRPCCallFailedError("one\r\ntwo\n"));
  EXPECT_EQ(sLine, "FAILED one  two ");
  rpc_line::writeFailure(sLine, JRPCCallFailedError(std::string(2000, 'x').c_str()));
  EXPECT_EQ(sLine, "FAILED " + std::string(504, 'x'));
}

// Versions.

struct VersionCase {
  const char* text;
  bool read;
  JRPCVersion version;
};

TEST(Version, IsReadFromExactlyTwoParts) {
  for (const VersionCase& row :
       {VersionCase{"4.3", true, {4, 3}}, VersionCase{" 2 . 10 ", true, {2, 10}},
        VersionCase{"-1.+2", true, {-1, 2}}, VersionCase{"2.2 SP6", true, {2, 2}},
        VersionCase{"4", false, {0, 0}}, VersionCase{"4.3.1", false, {0, 0}},
        VersionCase{"4.", false, {0, 0}}, VersionCase{".3", false, {0, 0}}, VersionCase{"a.b", false, {0, 0}},
        VersionCase{"", false, {0, 0}}, VersionCase{"4.99999999999", false, {0, 0}}}) {
    JRPCVersion version{7, 7};
    EXPECT_EQ(version.fromText(row.text), row.read) << row.text;
    EXPECT_EQ(version, row.version) << row.text;
  }
  EXPECT_LT((JRPCVersion{4, 9}), (JRPCVersion{4, 10}));
  EXPECT_LT((JRPCVersion{3, 13}), (JRPCVersion{4, 0}));
  EXPECT_EQ((JRPCVersion{4, 10}).toText(), "4.10");
}

}  // namespace
