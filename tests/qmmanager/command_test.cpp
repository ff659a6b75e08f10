#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/platform/faultseam.h"
#include "storage/AlarmLog.h"
#include "storage/Slice.h"
#include "tests/qmmanager/servedarchive.h"
#include "tests/storage/readersupport.h"

namespace {

using namespace qm_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Rows = std::vector<std::string>;
using Control = StorageAccessController;

/// "START-END;..." of frames.
std::string intervals(const std::vector<std::uint64_t>& frames) {
  std::string sText;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    sText += (i == 0 ? "" : i % 2 == 1 ? "-" : ";") + frameDate(frames[i]);
  }
  return sText;
}

/// One source of three slices with 25 frames each, "gate" at the rate 25.
class ManagerCommands : public testing::Test {
 protected:
  ManagerCommands() {
    for (const std::uint64_t uFirst : {0, 25, 50}) {
      served.record("gate", 25, uFirst, 25, wholeVideoStream());
    }
    served.serve();
  }

  Control& control() { return *served.pControl; }
  std::size_t slices() const { return served.pArchive->requireUnit("gate", 25)->getSliceCount(); }

  /// All rows of the unit's three logs, and what searches find.
  std::string state() {
    std::string sState;
    for (const Rows& rows : {served.rows(control().protectedLogQuery("gate", 25)),
                             served.rows(control().alarmLogQuery("gate", 25)),
                             served.rows(control().metaDataLogQuery("gate", 25)), served.found("")}) {
      for (const std::string& sRow : rows) {
        sState += sRow + "\n";
      }
    }
    return sState;
  }

  ServedArchive served;
};

std::string protectionRow(std::uint64_t uFirst, const std::string& sEnd) {
  return "ProtectedStartDate=\"" + frameDate(uFirst) + "\",ProtectedEndDate=\"" + sEnd +
         "\",ValidityStartDate=\"" + frameDate(0) + "\",ValidityEndDate=\"" + frameDate(9) +
         "\",Details=\"by\toperator\"";
}

std::string alarmRow(const std::string& sName, std::uint64_t uFirst, std::uint64_t uLast, std::uint64_t uAt) {
  return "Name=\"" + sName + "\",SpanStartDate=\"" + frameDate(uFirst) + "\",SpanEndDate=\"" +
         frameDate(uLast) + "\",AlarmDate=\"" + frameDate(uAt) + "\"";
}

TEST_F(ManagerCommands, HoldAcrossARestart) {
  EXPECT_EQ(
      control().protect("gate", 25, frameDate(5), frameDate(40), frameDate(0), frameDate(9), "by\toperator"),
      0);
  EXPECT_EQ(control().unprotect("gate", 25, frameDate(20), frameDate(60)), 0);
  EXPECT_EQ(control().alarm("gate", 25, "door", frameDate(3), frameDate(0), frameDate(4)), 0);
  EXPECT_EQ(control().alarm("gate", 25, "door 2", frameDate(7), frameDate(5), frameDate(9)), 0);
  EXPECT_EQ(control().alarm("gate", 25, "fire", frameDate(7), frameDate(5), frameDate(9)), 0);
  EXPECT_EQ(control().removeAlarmByDate("gate", 25, "door*", frameDate(7)), 0);
  EXPECT_EQ(control().removeAlarmByInterval("gate", 25, "fire", frameDate(9), frameDate(20)), 0);
  EXPECT_EQ(control().setMetaData("gate", 25, frameDate(0), frameDate(40), "lane=2,plate=\"A\""), 0);
  EXPECT_EQ(control().unsetMetaData("gate", 25, frameDate(10), frameDate(50), "lane=3,plate=\"A\""), 0);
  EXPECT_EQ(control().unsetMetaData("gate", 25, frameDate(20), frameDate(50), " l* ,x"), 0);
  EXPECT_EQ(control().hideIntervals("gate", 25, intervals({60, 62, 70, 74})), 0);
  EXPECT_EQ(control().unhideIntervals("gate", 25, intervals({72, 74}) + ";"), 0);
  EXPECT_EQ(served.message(), "");

  const std::string sState = state();
  const std::string sBefore20 = frameDate(19).substr(0, 20) + "799999UTC";
  EXPECT_THAT(sState, HasSubstr(protectionRow(5, sBefore20)));
  EXPECT_THAT(sState, HasSubstr(alarmRow("door", 0, 4, 3)));
  EXPECT_THAT(sState, testing::Not(HasSubstr("door 2")));
  EXPECT_THAT(sState, HasSubstr("Name=\"fire\",SpanStartDate=\"" + frameDate(5) + "\",SpanEndDate=\"" +
                                frameDate(8).substr(0, 20) + "359999UTC\""));
  EXPECT_THAT(sState, HasSubstr("lane=2, plate=\"A\"\n"));
  EXPECT_THAT(served.rows(control().metaDataLogQuery("gate", 25)), testing::SizeIs(2));
  EXPECT_THAT(served.found(""), ElementsAre("gate/25 0-59+", "gate/25 62+-69+", "gate/25 72-74"));
  served.serve();
  EXPECT_EQ(state(), sState);
}

TEST_F(ManagerCommands, EraseWhatNoProtectionHolds) {
  ASSERT_EQ(control().protect("gate", 25, frameDate(55), frameDate(60), "", "", ""), 0);
  // The widest span that a host can give; logs give its ends back as other dates.
  EXPECT_EQ(control().erase("gate", 25, "01/01/1970 00:00:00.000000UTC", "01/19/2038 03:14:07.999999UTC"), 0);
  EXPECT_EQ(served.message(), "");
  EXPECT_THAT(served.found(""), ElementsAre("gate/25 55-60"));
  EXPECT_EQ(slices(), 1U);
  served.serve();
  EXPECT_EQ(control().erase("gate", 25, frameDate(56), frameDate(58)), 0);
  EXPECT_THAT(served.found(""), ElementsAre("gate/25 55-60"));
  ASSERT_EQ(control().unprotect("gate", 25, frameDate(0), frameDate(100)), 0);
  EXPECT_EQ(control().erase("gate", 25, frameDate(50), frameDate(74)), 0);
  EXPECT_THAT(served.found(""), IsEmpty());
  EXPECT_EQ(slices(), 0U);
}

TEST_F(ManagerCommands, AreRefusedInWords) {
  const std::string s0 = frameDate(0);
  const std::string s9 = frameDate(9);
  const struct {
    std::function<std::int32_t(Control& c)> run;
    std::string sMessage;
  } kRows[] = {
      {[&](Control& c) { return c.protect("cellar", 25, s0, s9, "", "", ""); },
       "there is no recording of \"cellar\" at the frame rate 25"},
      {[&](Control& c) { return c.protect("gate", 25, s9, s0, "", "", ""); },
       "the parameter \"TsProtectedEnd\" is before the start"},
      {[&](Control& c) { return c.protect("gate", 25, s0, s9, s9, s0, ""); },
       "the validity ends before it starts"},
      {[&](Control& c) { return c.protect("gate", 25, s0, s9, "", "", "two\nlines"); },
       "the details are too long, or hold a line break"},
      {[&](Control& c) { return c.protect("gate", 25, s0, s9, "", "", std::string(300, 'x')); },
       "the details are too long, or hold a line break"},
      {[&](Control& c) { return c.alarm("gate", 25, "", s0, s0, s9); }, "an alarm needs a name"},
      {[&](Control& c) { return c.alarm("gate", 25, "a\tb", s0, s0, s9); },
       "The name of an alarm is too long or holds a tab or a line break"},
      {[&](Control& c) { return c.removeAlarmByDate("gate", 25, "*", s0); },
       "no alarm \"*\" was raised at " + s0},
      {[&](Control& c) { return c.setMetaData("gate", 25, s0, s9, ""); },
       "\"\" is no list of pairs; one is KEY=VALUE, KEY=VALUE"},
      {[&](Control& c) { return c.setMetaData("gate", 25, s0, s9, "a"); },
       "\"a\" is no list of pairs; one is KEY=VALUE, KEY=VALUE"},
      {[&](Control& c) { return c.setMetaData("gate", 25, s0, s9, "a=1 b=2"); },
       "\"a=1 b=2\" is no list of pairs; one is KEY=VALUE, KEY=VALUE"},
      {[&](Control& c) { return c.setMetaData("gate", 25, s0, s0, "a=1"); },
       "the span from " + s0 + " to " + s0 + " has no length, or lies outside 1970 to 2038"},
      {[&](Control& c) { return c.unsetMetaData("gate", 25, s0, s9, "a,,b"); },
       "\"a,,b\" is no list of keys; one is KEY, KEY"},
      {[&](Control& c) { return c.hideIntervals("gate", 25, s9 + "-" + s0); },
       "the interval \"" + s9 + "-" + s0 + "\" ends before it starts"},
  };
  const std::string sState = state();
  for (const auto& row : kRows) {
    EXPECT_EQ(row.run(control()), -1) << row.sMessage;
    EXPECT_EQ(served.message(), row.sMessage);
  }
  for (const std::string& sIntervals :
       {std::string(), std::string(";"), s0, s0 + "-", "-" + s0, s0 + "-" + s9 + ";;", s0 + " - " + s9,
        s0 + "-" + s9 + "x", s0 + "-02/31/2012 00:00:00.000000UTC", "3/3/2011 08:00:00.000000UTC-" + s9}) {
    EXPECT_EQ(control().hideIntervals("gate", 25, sIntervals), -1) << sIntervals;
    EXPECT_THAT(served.message(), HasSubstr("is no interval; one is ")) << sIntervals;
  }
  std::string sMany;
  for (int i = 0; i <= 1000; ++i) {
    sMany += s0 + "-" + s9 + ";";
  }
  EXPECT_EQ(control().hideIntervals("gate", 25, sMany), -1);
  EXPECT_EQ(served.message(), "there are more than 1000 intervals");
  EXPECT_EQ(state(), sState);
}

TEST_F(ManagerCommands, RefuseAnAlarmThatTheLimitWouldDropAtOnce) {
  AlarmLog::setLimits(1, true);
  EXPECT_EQ(control().alarm("gate", 25, "late", frameDate(5), frameDate(5), frameDate(9)), 0);
  EXPECT_EQ(control().alarm("gate", 25, "early", frameDate(0), frameDate(0), frameDate(4)), -1);
  EXPECT_EQ(served.message(), "the alarm log is full, and all alarms in it are later than this one");
  EXPECT_THAT(served.rows(control().alarmLogQuery("gate", 25)), ElementsAre(alarmRow("late", 5, 9, 5)));
  AlarmLog::setLimits(AlarmLog::kDefaultMaxRecords, true);
}

TEST_F(ManagerCommands, OfManyClientsAllHold) {
  constexpr std::uint64_t kClients = 6;
  constexpr std::uint64_t kRounds = 10;
  std::vector<std::thread> clients;
  for (std::uint64_t i = 0; i < kClients; ++i) {
    clients.emplace_back([this, i] {
      LineClient client(served.pManager->getPort());
      for (std::uint64_t uRound = 0; uRound < kRounds; ++uRound) {
        const std::string sFrame = std::to_string(kBegin + (i * kRounds + uRound) * kPeriod);
        const std::string sUnit = "(SourceName=\"gate\",Fps=25,";
        EXPECT_EQ(client.ask("rpc_alarm" + sUnit + "AlarmName=\"door\",TsAlarmIncident=" + sFrame +
                             ",TsAlarmStart=" + sFrame + ",TsAlarmEnd=" + sFrame + ")"),
                  "OK ");
        EXPECT_THAT(client.ask("rpc_getAlarmNames()"), HasSubstr("\"door\""));
        served.pArchive->makeUnit("new " + std::to_string(uRound), 5);
        EXPECT_THAT(client.ask("rpc_getSourceMap()"), HasSubstr("\"new " + std::to_string(uRound) + "\""));
      }
    });
  }
  for (std::thread& client : clients) {
    client.join();
  }
  EXPECT_THAT(served.rows(control().alarmLogQuery("gate", 25)), testing::SizeIs(kClients * kRounds));
  EXPECT_THAT(served.rows(control().sourcesQuery()), testing::SizeIs(1 + kRounds));
}

#ifdef QM_FAULT_SEAMS

/// Each command, with each single call of the disk failing in turn. What was acknowledged is there, and what
/// clients see is what a restart finds. A command that was refused may have come to the disk all the same.
TEST_F(ManagerCommands, SayWhatTheDiskHas) {
  const std::vector<std::function<std::int32_t(Control&, std::uint64_t i)>> kCommands = {
      [](Control& c, std::uint64_t i) {
        return c.protect("gate", 25, frameDate(i), frameDate(i + 1), "", "", "kept");
      },
      [](Control& c, std::uint64_t i) {
        return c.alarm("gate", 25, "door", frameDate(i), frameDate(i), frameDate(i + 1));
      },
      [](Control& c, std::uint64_t i) {
        return c.setMetaData("gate", 25, frameDate(i), frameDate(i + 1), "n=" + std::to_string(i));
      },
      [](Control& c, std::uint64_t i) {
        return c.hideIntervals("gate", 25, intervals({i, i + 1}));
      },
      [](Control& c, std::uint64_t i) {
        return c.unsetMetaData("gate", 25, frameDate(i), frameDate(99), "*");
      },
      [](Control& c, std::uint64_t i) { return c.unprotect("gate", 25, frameDate(i), frameDate(99)); },
  };
  constexpr std::ptrdiff_t kAdding = 4;  // the first ones change something each time
  std::size_t uRefused = 0;
  for (const auto& command : kCommands) {
    for (std::uint64_t uNth = 1, bGoOn = true; bGoOn && uNth < 60; ++uNth) {
      const std::string sBefore = state();
      qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kFile), uNth,
                              qm_platform::FaultKind::kError, ENOSPC, false});
      const std::int32_t iResult = command(control(), uNth % 20);
      bGoOn = qm_platform::disarmFaults();
      const std::string sAfter = state();
      if (iResult != 0) {
        ++uRefused;
        EXPECT_NE(served.message(), "");
      } else if (&command - kCommands.data() < kAdding) {
        EXPECT_NE(sAfter, sBefore);
      }
      served.serve();
      EXPECT_EQ(state(), sAfter) << uNth;
    }
  }
  EXPECT_GT(uRefused, kCommands.size());
}

/// Where a log can't even be read again, clients see what they saw, and are served again afterwards.
TEST_F(ManagerCommands, OutlastADiskThatRefusesEverything) {
  const auto changeAll = [this](std::uint64_t i) {
    return control().protect("gate", 25, frameDate(i), frameDate(i + 1), "", "", "kept") +
           control().alarm("gate", 25, "door", frameDate(i), frameDate(i), frameDate(i + 1)) +
           control().setMetaData("gate", 25, frameDate(i), frameDate(i + 1), "n=1") +
           control().hideIntervals("gate", 25, intervals({i, i + 1}));
  };
  ASSERT_EQ(changeAll(4), 0);
  const std::string sBefore = state();
  qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kFile), 1,
                          qm_platform::FaultKind::kError, EMFILE, true});
  const std::int32_t iResult = changeAll(8);
  qm_platform::disarmFaults();
  EXPECT_EQ(iResult, -4);
  EXPECT_EQ(state(), sBefore);
  EXPECT_EQ(changeAll(12), 0);
  const std::string sAfter = state();
  served.serve();
  EXPECT_EQ(state(), sAfter);
}

#endif

}  // namespace
