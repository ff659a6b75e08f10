#include <gmock/gmock.h>
#include <numeric>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

using qm_test::Gate;
using qm_test::makeRecord;
using qm_test::messagesOf;
using qm_test::ScriptedOutput;
using testing::ElementsAre;
using testing::SizeIs;

/// Longer than any test runs.
constexpr int kNeverRetry = 1'000'000'000;

/// An output whose thread is stuck in its first record until the gate opens.
struct StuckOutput {
  explicit StuckOutput(std::uint32_t uCapacity)
      : output(uCapacity, [this](const JLog::Msg& record) {
          if (record.sMessage == "first") {
            gate.pass();
          }
          return true;
        }) {
    output.start();
    output.write(makeRecord("first"));
    gate.awaitThread();
  }
  ~StuckOutput() { gate.open(); }

  Gate gate;
  ScriptedOutput output;
};

TEST(LogThreadedOutput, FullQueueLosesRecordsAndTellsWhenThereIsRoom) {
  StuckOutput stuck(3);
  for (int i = 1; i <= 5; ++i) {
    stuck.output.write(makeRecord(std::to_string(i)));
  }
  EXPECT_EQ(stuck.output.getQueuedCount(), 3U);
  EXPECT_EQ(stuck.output.getLostCount(), 2U);
  stuck.gate.open();
  stuck.output.written.await(4);
  stuck.output.write(makeRecord("next"));
  const auto records = stuck.output.written.await(6);
  EXPECT_THAT(messagesOf(records),
              ElementsAre("first", "1", "2", "3", "### LOG OVERFLOW, LOST 2 MESSAGES ###", "next"));
  EXPECT_EQ(records[4].uLevel, qm_err::kLogWarning);
  EXPECT_EQ(records[4].uProcessId, qm_platform::processId());
  EXPECT_EQ(records[4].uThreadId, qm_platform::threadId());
  EXPECT_GT(records[4].time, JTime::fromMicroseconds(JTime::kClockSetLimit));
  EXPECT_EQ(stuck.output.getLostCount(), 0U);
}

TEST(LogThreadedOutput, ReportMayTakeTheOnlyPlaceOfTheQueue) {
  Gate first;
  Gate second;
  ScriptedOutput output(1, [&](const JLog::Msg& record) {
    if (record.sMessage == "first") {
      first.pass();
    } else if (record.sMessage == "second") {
      second.pass();
    }
    return true;
  });
  output.start();
  output.write(makeRecord("first"));
  first.awaitThread();
  output.write(makeRecord("second"));
  output.write(makeRecord("lost"));
  first.open();
  second.awaitThread();
  output.write(makeRecord("lost behind the report"));
  EXPECT_EQ(output.getLostCount(), 1U);
  second.open();
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_THAT(messagesOf(output.written.items()),
              ElementsAre("first", "second", "### LOG OVERFLOW, LOST 1 MESSAGES ###"));
}

TEST(LogThreadedOutput, TriesAFailedRecordAgainAfterItsDelay) {
  int iCalls = 0;
  ScriptedOutput output(10, [&](const JLog::Msg&) {
    switch (iCalls++) {
      case 0:
        return false;
      case 1:
        QM_THROW(JTextError, "gone");
      default:
        return true;
    }
  });
  output.setRetryDelay(1);
  output.start();
  output.write(makeRecord("again"));
  EXPECT_THAT(messagesOf(output.written.await(1)), ElementsAre("again"));
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_EQ(iCalls, 3);
  EXPECT_EQ(output.getLostCount(), 0U);
}

TEST(LogThreadedOutput, FailedRecordGivesWayToANewerOneAndCountsAsLost) {
  ScriptedOutput output(10, [](const JLog::Msg& record) { return record.sMessage != "poison"; });
  output.setRetryDelay(kNeverRetry);
  output.start();
  output.write(makeRecord("poison"));
  output.failed.await(1);
  output.write(makeRecord("poison"));
  output.failed.await(2);
  output.write(makeRecord("good"));
  output.written.await(1);
  while (output.getLostCount() == 0) {
    std::this_thread::yield();  // counted just behind the write
  }
  output.write(makeRecord("next"));
  EXPECT_THAT(messagesOf(output.written.await(3)),
              ElementsAre("good", "### LOG OVERFLOW, LOST 2 MESSAGES ###", "next"));
}

TEST(LogThreadedOutput, StopWritesWhatTheQueueHoldsWhileThereIsTime) {
  for (const int iTimeout : {-1, 0}) {
    StuckOutput stuck(10);
    for (int i = 1; i <= 3; ++i) {
      stuck.output.write(makeRecord(std::to_string(i)));
    }
    EXPECT_FALSE(stuck.output.stop(iTimeout, false));
    stuck.gate.open();
    EXPECT_TRUE(stuck.output.stop(iTimeout, true));
    EXPECT_THAT(stuck.output.written.items(), SizeIs(iTimeout == 0 ? 1 : 4));
    EXPECT_EQ(stuck.output.getFlushLostCount(), iTimeout == 0 ? 3U : 0U);
    EXPECT_TRUE(stuck.output.stop(0, false));
  }
}

TEST(LogThreadedOutput, FailedWriteEndsTheFlush) {
  Gate gate;
  ScriptedOutput output(10, [&](const JLog::Msg& record) {
    if (record.sMessage == "0") {
      gate.pass();
    }
    return record.sMessage < "2";
  });
  output.start();
  for (int i = 0; i <= 4; ++i) {
    output.write(makeRecord(std::to_string(i)));
  }
  gate.awaitThread();
  EXPECT_FALSE(output.stop(-1, false));
  gate.open();
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_THAT(messagesOf(output.written.items()), ElementsAre("0", "1"));
  EXPECT_THAT(messagesOf(output.failed.items()), ElementsAre("2"));
  EXPECT_EQ(output.getFlushLostCount(), 3U);
}

TEST(LogThreadedOutput, RecordThatWaitsForItsRetryIsPartOfTheFlush) {
  int iCalls = 0;
  ScriptedOutput output(10, [&](const JLog::Msg&) { return ++iCalls > 1; });
  output.setRetryDelay(kNeverRetry);
  output.start();
  output.write(makeRecord("kept"));
  output.failed.await(1);
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_THAT(messagesOf(output.written.items()), ElementsAre("kept"));
}

TEST(LogThreadedOutput, WritesOnTheCallersThreadWhileNoneRuns) {
  std::uint32_t uWriter = 0;
  ScriptedOutput output(1, [&](const JLog::Msg& record) {
    uWriter = JThread::getCurrentThreadId();
    return record.sMessage != "bad";
  });
  EXPECT_TRUE(output.stop(1000, true));
  output.write(makeRecord("before"));
  EXPECT_EQ(uWriter, JThread::getCurrentThreadId());
  output.write(makeRecord("bad"));
  EXPECT_EQ(output.getLostCount(), 1U);
  output.write(makeRecord("told"));
  output.start();
  output.start();
  output.write(makeRecord("queued"));
  output.written.await(4);
  EXPECT_TRUE(output.stop(-1, true));
  output.write(makeRecord("after"));
  output.start();
  output.write(makeRecord("started again"));
  EXPECT_TRUE(output.stop(-1, true));
  EXPECT_THAT(messagesOf(output.written.items()),
              ElementsAre("before", "### LOG OVERFLOW, LOST 1 MESSAGES ###", "told", "queued", "after",
                          "started again"));
  EXPECT_THAT(output.threadsEnded.items(), SizeIs(2));
}

TEST(LogThreadedOutput, WithoutAThreadToBeHadWritesOnTheCallersThread) {
  ScriptedOutput output(1);
  qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kThread),
                          .nth = 1,
                          .error = 11,
                          .onwards = true});
  EXPECT_THROW(
      try { output.start(); } catch (JError* pError) {
        const qm_err::CaughtError error(pError);
        throw 0;
      },
      int);
  EXPECT_TRUE(qm_platform::disarmFaults());
  output.write(makeRecord("all the same"));
  EXPECT_THAT(messagesOf(output.written.items()), ElementsAre("all the same"));
}

/// An output that takes what it is offered in groups.
class GroupingOutput : public JLogThreadedOutput {
 public:
  GroupingOutput(std::uint32_t uCapacity, std::size_t uMost)
      : JLogThreadedOutput("grouping", "", uCapacity, 0), m_uMost(uMost) {}
  ~GroupingOutput() override { stop(0, true); }

  bool writeRecord(const JLog::Msg&) override { return false; }

  std::size_t writeRecords(std::span<const JLog::Msg> records) override {
    if (records.front().sMessage == "first") {
      gate.pass();
    }
    const std::size_t uCount = std::min(records.size(), m_uMost);
    for (const JLog::Msg& record : records.first(uCount)) {
      written.add(record);
    }
    groups.add(uCount);
    return m_uMost > records.size() ? m_uMost : uCount;  // an output that claims too much does no harm
  }

  Gate gate;
  qm_test::Journal<JLog::Msg> written;
  qm_test::Journal<std::size_t> groups;

 private:
  const std::size_t m_uMost;
};

TEST(LogThreadedOutput, OffersAllThatWaitsAtOnceAndLosesNoneAtTheRingsEnd) {
  for (const std::size_t uMost : {std::size_t{1}, std::size_t{2}, std::size_t{100}}) {
    SCOPED_TRACE(uMost);
    GroupingOutput output(7, uMost);
    output.start();
    std::vector<std::string> expected;
    const auto write = [&](const std::string& sMessage) {
      output.write(makeRecord(sMessage));
      expected.push_back(sMessage);
    };
    write("first");
    output.gate.awaitThread();
    for (int i = 1; i <= 7; ++i) {
      write(std::to_string(i));
    }
    output.gate.open();
    output.written.await(8);
    for (int i = 8; i <= 12; ++i) {
      write(std::to_string(i));
      output.written.await(expected.size());
    }
    EXPECT_TRUE(output.stop(-1, true));
    EXPECT_EQ(messagesOf(output.written.items()), expected);
    const std::vector<std::size_t> groups = output.groups.items();
    EXPECT_EQ(std::accumulate(groups.begin(), groups.end(), std::size_t{0}), expected.size());
    EXPECT_EQ(*std::max_element(groups.begin(), groups.end()), std::min<std::size_t>(uMost, 7));
  }
}

class LogThreadedOutputStop : public qm_test::LogTest {};

TEST_F(LogThreadedOutputStop, TellsInTheLogWhatWasNotReportedYet) {
  const auto pRecords = std::make_shared<qm_test::RecordingOutput::Records>();
  JLog::addLogOutput(std::make_unique<qm_test::RecordingOutput>(pRecords));
  StuckOutput stuck(1);
  for (int i = 0; i < 3; ++i) {
    stuck.output.write(makeRecord("queued, then lost"));
  }
  stuck.output.stop(-1, false);
  stuck.gate.open();
  EXPECT_TRUE(stuck.output.stop(-1, true));
  ASSERT_THAT(*pRecords, SizeIs(1));
  EXPECT_EQ(pRecords->front().sMessage, "### scripted LOG OVERFLOW, LOST 2 MESSAGES ###");
  EXPECT_EQ(pRecords->front().uLevel, qm_err::kLogWarning);
  EXPECT_EQ(stuck.output.getLostCount(), 0U);
}

}  // namespace
