#include <algorithm>
#include <gmock/gmock.h>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/jtraceableobject.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::messagesOf;
using qm_test::RecordingOutput;
using qm_test::thrownBy;
using testing::ElementsAre;
using testing::SizeIs;

class LogFacade : public qm_test::LogTest {
 protected:
  LogFacade() { JLog::addLogOutput(std::make_unique<RecordingOutput>(m_pRecords)); }
  ~LogFacade() override { JLog::setDefaultInstance("System"); }

  const std::shared_ptr<RecordingOutput::Records> m_pRecords = std::make_shared<RecordingOutput::Records>();
};

TEST_F(LogFacade, RecordTellsWhereAndWhenItWasMade) {
  const JTime before = JTime::now();
  JLog::log(qm_err::kLogWarning, "100%s", "a.cpp", 12, "JFoo *", nullptr);
  JLog::setDefaultInstance("Manager");
  const qm_utils::ITraceableObject* pNobody = nullptr;
  JLog::log(pNobody, qm_err::kLogTraceRpc, "%d of %s", 3, "four");
  ASSERT_THAT(*m_pRecords, SizeIs(2));
  const JLog::Msg& first = m_pRecords->front();
  EXPECT_GE(first.time, before);
  EXPECT_LE(first.time, JTime::now());
  JLog::Msg expected;
  expected.uLevel = 9;
  expected.sMessage = "100%s";
  expected.time = first.time;
  expected.uProcessId = qm_platform::processId();
  expected.uThreadId = qm_platform::threadId();
  expected.sInstance = "System";
  expected.sUnit = "test_log";
  expected.sFile = "a.cpp";
  expected.uLine = 12;
  expected.sClass = "JFoo";
  EXPECT_EQ(first, expected);
  const JLog::Msg& second = m_pRecords->back();
  EXPECT_EQ(second.sMessage, "3 of four");
  EXPECT_EQ(second.sInstance, "Manager");
  EXPECT_THAT(second.sFile, testing::IsEmpty());
  EXPECT_EQ(second.uLine, 0U);
  EXPECT_EQ(second.sClass, "_undef_");
}

TEST_F(LogFacade, MessageIsCut) {
  const std::string sLong(3000, 'x');
  JLog::log(qm_err::kLogInfo, "%s", sLong.c_str());
  JLog::log(qm_err::kLogInfo, sLong.c_str(), "", 0, "", nullptr);
  EXPECT_THAT(messagesOf(*m_pRecords), ElementsAre(SizeIs(2047), SizeIs(2047)));
  EXPECT_EQ(m_pRecords->back().sClass, "_undef_");
}

TEST_F(LogFacade, HookBringsWhatLowerCodeLogs) {
  JTextError error("lost %d", 3);
  JCATCH_LOG(&error);
  qm_err::log(qm_err::kLogInfo, "plain");
  ASSERT_THAT(*m_pRecords, SizeIs(2));
  EXPECT_EQ(m_pRecords->front().uLevel, 10U);
  EXPECT_EQ(m_pRecords->front().sMessage, "lost 3");
  EXPECT_EQ(m_pRecords->front().sFile, "facade_test.cpp");
  EXPECT_EQ(m_pRecords->front().sClass, "Exception CATCH");
  EXPECT_EQ(m_pRecords->back().sClass, "_undef_");
}

TEST_F(LogFacade, MaskOfTheObjectChoosesLevelsFromThirteenUp) {
  const auto countLogged = [this](std::uint32_t uLevel, std::uint32_t* pMask) {
    m_pRecords->clear();
    const JTraceableObject object("gate", pMask);
    JLog::log(&object, uLevel, "%s", "object first");
    JLog::log(uLevel, &object, "%s", "level first");
    JLog::log(uLevel, "text", nullptr, 0, nullptr, &object);
    EXPECT_TRUE(std::all_of(m_pRecords->begin(), m_pRecords->end(),
                            [](const JLog::Msg& record) { return record.sInstance == "gate"; }));
    return m_pRecords->size();
  };
  std::uint32_t uNone = 0;
  std::uint32_t uRpc = 1U << 21;
  std::uint32_t uAllButRpc = ~uRpc;
  EXPECT_EQ(countLogged(21, nullptr), 3U);
  EXPECT_EQ(countLogged(21, &uRpc), 3U);
  EXPECT_EQ(countLogged(21, &uAllButRpc), 0U);
  EXPECT_EQ(countLogged(13, &uNone), 0U);
  EXPECT_EQ(countLogged(12, &uNone), 3U);
  EXPECT_EQ(countLogged(32, &uAllButRpc), 0U);
}

TEST_F(LogFacade, WhatAnOutputLogsWhileItWritesIsDropped) {
  auto pOutput = std::make_unique<RecordingOutput>(m_pRecords);
  pOutput->onWrite = [] { JLog::log(qm_err::kLogError, "nested"); };
  JLog::addLogOutput(std::move(pOutput));
  JLog::addLogOutput(std::make_unique<qm_test::ScriptedOutput>(10, [](const JLog::Msg&) {
    JLog::log(qm_err::kLogError, "nested on the caller's thread");
    return true;
  }));
  JLog::log(qm_err::kLogInfo, "outer");
  JLog::log(qm_err::kLogInfo, "next");
  EXPECT_THAT(messagesOf(*m_pRecords), ElementsAre("outer", "outer", "next", "next"));
}

TEST_F(LogFacade, FailingOutputDisturbsNobody) {
  auto pOutput = std::make_unique<RecordingOutput>(std::make_shared<RecordingOutput::Records>());
  int iWrites = 0;
  pOutput->onWrite = [&iWrites] {
    if (++iWrites == 1) {
      QM_THROW(JTextError, "broken");
    }
    throw std::bad_alloc();
  };
  JLog::addLogOutput(std::move(pOutput));
  const auto pBehind = std::make_shared<RecordingOutput::Records>();
  JLog::addLogOutput(std::make_unique<RecordingOutput>(pBehind));
  JLog::log(qm_err::kLogInfo, "a");
  JLog::log(qm_err::kLogInfo, "b");
  EXPECT_THAT(messagesOf(*pBehind), ElementsAre("a", "b"));
}

TEST_F(LogFacade, NullOutputsAndInputsAreRefused) {
  EXPECT_EQ(thrownBy([] { JLog::addLogOutput(nullptr); }), "JLog::addLogOutput() called with NULL pointer.");
  EXPECT_EQ(thrownBy([] { JLog::addLogInput(nullptr); }), "JLog::addLogInput() called with NULL pointer.");
}

TEST_F(LogFacade, ShutdownWritesWhatOutputsHoldAndDeletesThem) {
  struct LastWords : qm_test::ScriptedOutput {
    LastWords(std::vector<JLog::Msg>& kept) : ScriptedOutput(10), m_kept(kept) {}
    ~LastWords() override { m_kept = written.items(); }
    std::vector<JLog::Msg>& m_kept;
  };
  std::vector<JLog::Msg> kept;
  auto pOutput = std::make_unique<LastWords>(kept);
  pOutput->start();
  JLog::addLogOutput(std::move(pOutput));
  JLog::log(qm_err::kLogInfo, "last");
  JLog::shutdown(-1);
  JLog::log(qm_err::kLogInfo, "nowhere");
  ASSERT_FALSE(kept.empty());
  EXPECT_TRUE(
      std::any_of(kept.begin(), kept.end(), [](const auto& record) { return record.sMessage == "last"; }));
  EXPECT_THAT(messagesOf(*m_pRecords), ElementsAre("last"));
}

// ---------------------------------------------------------------------------------------------------------

TEST_F(LogFacade, TraceableObjectsHaveDistinctNames) {
  auto pFirst = std::make_unique<JTraceableObject>("cam");
  const JTraceableObject second("cam");
  EXPECT_EQ(pFirst->getName(), "cam");
  EXPECT_EQ(second.getName(), "cam[" + std::to_string(second.getId()) + "]");
  EXPECT_GT(second.getId(), pFirst->getId());
  pFirst.reset();
  const JTraceableObject third("cam");
  EXPECT_EQ(third.getName(), "cam");
  const JTraceableObject unnamed;
  char szAddress[32];
  std::snprintf(szAddress, sizeof szAddress, "[%p]", static_cast<const void*>(&unnamed));
  EXPECT_EQ(unnamed.getName(), szAddress);
}

TEST_F(LogFacade, RenamedObjectGivesItsOldNameUp) {
  struct Renamed : JTraceableObject {
    using JTraceableObject::JTraceableObject;
    using JTraceableObject::setTraceName;
  };
  Renamed first("one");
  Renamed second("two");
  first.setTraceName("two");
  EXPECT_EQ(first.getName(), "two[" + std::to_string(first.getId()) + "]");
  second.setTraceName("one");
  EXPECT_EQ(second.getName(), "one");
}

TEST_F(LogFacade, TraceMaskIsSharedOrCopied) {
  std::uint32_t uMask = 0x6;
  const JTraceableObject none("none");
  const JTraceableObject shared("shared", &uMask);
  const JTraceableObject copied("copied", &uMask, JTraceableObject::Mask::kCopied);
  EXPECT_EQ(none.getTraceMask(), nullptr);
  EXPECT_FALSE(none.isTraceEnabled(~0U));
  uMask = 0x8;
  EXPECT_TRUE(shared.isTraceEnabled(0x8 | 0x1));
  EXPECT_FALSE(shared.isTraceEnabled(0x6));
  EXPECT_TRUE(copied.isTraceEnabled(0x2));
  EXPECT_FALSE(copied.isTraceEnabled(0x8));
  EXPECT_NE(copied.getTraceMask(), &uMask);
}

}  // namespace
