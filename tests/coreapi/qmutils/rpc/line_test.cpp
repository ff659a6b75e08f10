#include <gmock/gmock.h>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcremoteerror.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/rpc/linebuffer.h"
#include "coreapi/qmutils/rpc/owedanswers.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

// What needs no connection. Requests and answers are tested through those who read them.

namespace {

using qm_test::thrownBy;
using qm_utils::LineBuffer;
using qm_utils::OwedAnswers;
using testing::SizeIs;
using Request = OwedAnswers::Request;

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

TEST(LineBuffer, GivesTheSameLinesInPiecesOfAnySize) {
  const std::string sLong(1000, 'x');
  for (const FramingCase& row :
       {FramingCase{"CrLf", "one\r\ntwo\r\n", {"one", "two"}},
        FramingCase{"Mixed", "one\ntwo\r\n\r\n\nfive\r\n", {"one", "two", "", "", "five"}},
        FramingCase{"CrInside", "a\rb\r\r\n", {"a\rb\r"}}, FramingCase{"NoEnd", "one\r\nhalf", {"one"}},
        FramingCase{"NoEndButCr", "one\r\nhalf\r", {"one"}},
        FramingCase{"Nul", std::string("a\0b\r\n", 5), {std::string("a\0b", 3)}},
        FramingCase{"Long", sLong + "\r\nshort\r\n", {sLong, "short"}}}) {
    for (const std::size_t uPiece : {1U, 2U, 3U, 7U, 4096U}) {
      LineBuffer buffer(1 << 20);
      EXPECT_THAT(linesOf(buffer, row.bytes, uPiece), testing::ElementsAreArray(row.lines))
          << row.name << uPiece;
      EXPECT_LE(buffer.getCapacity(), row.bytes.size() < 256 ? 256U : 4 * row.bytes.size()) << row.name;
    }
  }
}

TEST(LineBuffer, TakesALineOfTheLimitAndNoLonger) {
  LineBuffer buffer(300);
  EXPECT_THAT(linesOf(buffer, std::string(300, 'a') + "\r\n", 7),
              testing::ElementsAre(std::string(300, 'a')));
  EXPECT_EQ(thrownBy([&] { linesOf(buffer, std::string(301, 'b') + "\n", 64); }),
            "line longer than 300 bytes");
  EXPECT_EQ(thrownBy([&] { buffer.takeLine(); }), "line longer than 300 bytes");
  LineBuffer endless(300);
  EXPECT_EQ(thrownBy([&] { linesOf(endless, std::string(1U << 20, 'a'), 64); }),
            "line longer than 300 bytes");
  EXPECT_LE(endless.getCapacity(), 1024U);
}

struct OwedCase {
  const char* name;
  std::vector<Request> requests;
  std::vector<std::pair<const char*, bool>> lines;  ///< a line, and whether it is the newest request's
};

TEST(OwedAnswers, OnlyTheLineThatLeavesNothingOwedIsTheNewestRequests) {
  constexpr auto kCall = Request::kCall;
  constexpr auto kNotify = Request::kNotify;
  constexpr auto kPing = Request::kPing;
  for (const OwedCase& row :
       {OwedCase{"OutOfForm", {kCall}, {{"PONG", true}}}, OwedCase{"LowerCase", {kPing}, {{"pong", true}}},
        OwedCase{"Late", {kCall, kPing, kCall}, {{"OK late=1", false}, {"PONG", false}, {"OK a=1", true}}},
        OwedCase{"NeverCame", {kCall, kCall, kPing}, {{"PONG", true}}},
        OwedCase{"NeverCameBehindPong", {kCall, kPing, kCall}, {{"PONG", false}, {"OK a=1", true}}},
        OwedCase{"QuietNotify", {kNotify, kPing}, {{"PONG", true}}},
        OwedCase{"FailedNotify", {kNotify, kPing}, {{"FAILED x", false}, {"PONG", true}}},
        OwedCase{"TwoPings", {kNotify, kPing, kPing}, {{"PONG", false}, {"PONG", true}}}}) {
    OwedAnswers answers;
    for (const Request request : row.requests) {
      answers.expect(request);
    }
    EXPECT_EQ(answers.isUncertain(), row.requests.front() == kNotify) << row.name;
    for (const auto& [szLine, bMine] : row.lines) {
      EXPECT_EQ(answers.settle(szLine), bMine) << row.name << ' ' << szLine;
    }
    EXPECT_FALSE(answers.isUncertain()) << row.name;
  }
}

struct VersionCase {
  const char* text;
  bool read;
  JRPCVersion version;
};

TEST(Version, IsReadFromExactlyTwoParts) {
  for (const VersionCase& row :
       {VersionCase{"4.3", true, {4, 3}}, VersionCase{" 2 . 10 ", true, {2, 10}},
        VersionCase{"-1.+2", true, {-1, 2}}, VersionCase{"2.2 SP6", true, {2, 2}},
        VersionCase{"4", false, {}}, VersionCase{"4.3.1", false, {}}, VersionCase{"4.", false, {}},
        VersionCase{"a.b", false, {}}, VersionCase{"", false, {}}, VersionCase{"4.99999999999", false, {}}}) {
    JRPCVersion version{7, 7};
    EXPECT_EQ(version.fromText(row.text), row.read) << row.text;
    EXPECT_EQ(version, row.version) << row.text;
  }
  EXPECT_LT((JRPCVersion{4, 9}), (JRPCVersion{4, 10}));
  EXPECT_LT((JRPCVersion{3, 13}), (JRPCVersion{4, 0}));
}

TEST(RemoteError, IsReadUpToTheFirstThatIsIncomplete) {
  const qm_test::LogCapture log;
  JParams params;
  EXPECT_TRUE(JRPCRemoteError::addError(params, 5, "disk", "full"));
  EXPECT_TRUE(JRPCRemoteError::addError(params, -6, "net", "gone"));
  EXPECT_TRUE(log.has(qm_err::kLogInfo, "addError: Adding remote error id(5),name(disk),message(full)\n"));
  ASSERT_THAT(JRPCRemoteError(&params).getErrors(), SizeIs(2));
  params.parse("_err_1_name=[00]");
  const JRPCRemoteError error(&params);
  ASSERT_THAT(error.getErrors(), SizeIs(1));
  EXPECT_EQ(error.getErrors()[0].JError::getMessage(), "id(5), name(disk), message(full)\n");
  EXPECT_THAT(JRPCRemoteError(nullptr).getErrors(), SizeIs(0));
  EXPECT_TRUE(log.has(qm_err::kLogError, "JRPCRemoteError: JParams pointer is NULL!!!\n"));
}

}  // namespace
