#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "coreapi/qmutils/time/timezone.h"
#include "tests/coreapi/qmutils/time/zonepackwriter.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

using qm_test::fixedZone;
using qm_test::machineZone;
using testing::HasSubstr;
using testing::SizeIs;

/// What a command writes to its standard output.
std::string outputOf(const std::string& sCommand) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(sCommand.c_str(), "r"), pclose);
  std::string sOutput;
  char szBuf[4096];
  for (std::size_t count = 0; (count = std::fread(szBuf, 1, sizeof szBuf, pipe.get())) != 0;) {
    sOutput.append(szBuf, count);
  }
  return sOutput;
}

std::string probePath() {
  return qm_platform::runningModuleDirectory() + "/zone_probe";
}

/// One line of the probe.
struct Told {
  std::string sShown;
  std::int64_t iBack = 0;
  std::string sOursShown;
  std::int64_t iOursBack = 0;
};

std::vector<Told> askPlatform(const std::string& sZone, const std::vector<std::int64_t>& instants) {
  const qm_test::TempDir directory;
  std::ostringstream input;
  for (const std::int64_t iInstant : instants) {
    input << iInstant << '\n';
  }
  std::istringstream lines(outputOf("TZ='" + sZone + "' '" + probePath() + "' < '" +
                                    directory.write("instants", input.str()) + "'"));
  std::vector<Told> told;
  for (Told line; lines >> line.sShown >> line.iBack >> line.sOursShown >> line.iOursBack;) {
    told.push_back(line);
  }
  return told;
}

std::string shown(const JLocalSplitTime& time) {
  const qm_utils::CalendarFields fields = time.getFields();
  return qm_utils::format("%02d/%02d/%04d_%02d:%02d:%02d_%d_%s", fields.iMonth + 1, fields.iDayOfMonth,
                          fields.iYear + 1900, fields.iHours, fields.iMinutes, fields.iSeconds,
                          time.getDaylight(), time.getZone().c_str());
}

/// Instants around every change of a zone, and others all over the range.
std::vector<std::int64_t> instantsOf(const qm_test::PackZone& zone) {
  // Leap seconds later than those of packs make later times of such zones differ.
  const std::int64_t iLast = zone.bLeapSeconds ? 1136000000 : 2147483647;
  std::vector<std::int64_t> instants = {-2147483648, -2147483647, -1, 0, 1, iLast};
  for (const std::int64_t iChange : zone.times) {
    for (const std::int64_t iBy :
         {-86400, -7200, -3601, -3600, -1801, -1, 0, 1, 1799, 1800, 3599, 3600, 7200, 86400}) {
      instants.push_back(iChange + iBy);
    }
  }
  std::mt19937 random(20110303);
  for (int i = 0; i < 300; ++i) {
    instants.push_back(static_cast<std::int32_t>(random()));
  }
  std::erase_if(instants, [iLast](std::int64_t i) { return i < -2147483648 || i > iLast; });
  return instants;
}

/// Keeps what is logged, and leaves the zone as it was.
class LocalTime : public testing::Test {
 protected:
  ~LocalTime() override { qm_utils::resetLocalTimeZone(); }

  const qm_test::LogCapture m_log;
};

class MachineZone : public LocalTime, public testing::WithParamInterface<const char*> {};

/// The zone three times: by the platform in a process of its own, by our code over the platform's rules
/// there, and by a pack made from the machine's zone data here.
TEST_P(MachineZone, ReadsTheSameByPlatformAndPackBothWays) {
  const qm_test::PackZone zone = machineZone(GetParam());
  const std::vector<std::int64_t> instants = instantsOf(zone);
  const std::vector<Told> told = askPlatform(GetParam(), instants);
  ASSERT_EQ(told.size(), instants.size());

  qm_test::PackZone renamed = zone;
  renamed.sName = "Own/Name";  // out of the way of changed signs
  ASSERT_TRUE(qm_utils::setLocalTimeZone("Own/Name", qm_test::pack({fixedZone("Other", 0, "O"), renamed})));
  for (std::size_t i = 0; i < instants.size(); ++i) {
    JLocalSplitTime time(JTime::fromUnixSeconds(instants[i]));
    ASSERT_EQ(shown(time), told[i].sShown) << instants[i];
    ASSERT_EQ(told[i].sOursShown, told[i].sShown) << instants[i];
    if (instants[i] < -2147483648 + 2 * 86400) {
      continue;  // 32-bit times don't say what the clock showed before
    }
    const std::int64_t iWall = qm_utils::secondsFromCalendar(time.getFields());
    time.fromFields();
    const std::int64_t iBack = time.getTime().toUnixSeconds();
    ASSERT_EQ(told[i].iOursBack, iBack) << told[i].sShown;
    // Of two instants at which the clock shows the same the platform takes either; we take the earlier.
    if (iBack != told[i].iBack || iBack != instants[i]) {
      ASSERT_LE(iBack, std::min(instants[i], told[i].iBack)) << told[i].sShown;
      ASSERT_EQ(qm_utils::secondsFromCalendar(JLocalSplitTime(time.getTime()).getFields()), iWall)
          << told[i].sShown;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(LocalTime, MachineZone,
                         testing::Values("Europe/Rome", "America/New_York", "America/St_Johns",
                                         "America/Sao_Paulo", "Australia/Lord_Howe", "Asia/Kolkata",
                                         "Africa/Casablanca", "Europe/Dublin", "Pacific/Apia",
                                         "Antarctica/Troll", "Africa/Monrovia", "Etc/UTC",
                                         "right/Europe/Rome", "right/Indian/Chagos"),
                         [](const auto& row) {
                           std::string sName = row.param;
                           std::replace(sName.begin(), sName.end(), '/', '_');
                           return sName;
                         });

struct JumpCase {
  const char* name;
  const char* szLocal;
  const char* szUtc;
};

TEST_F(LocalTime, TakesTheEarlierHourAndCountsOnOverAGap) {
  const JumpCase rows[] = {{"Winter", "01/15/2011 12:00:00.000001", "01/15/2011 11:00:00.000001UTC"},
                           {"Summer", "07/15/2011 12:00:00.000001", "07/15/2011 10:00:00.000001UTC"},
                           {"LastBeforeTheGap", "03/27/2011 01:59:59.9", "03/27/2011 00:59:59.000009UTC"},
                           {"StartOfTheGap", "03/27/2011 02:00:00.0", "03/27/2011 01:00:00.000000UTC"},
                           {"InTheGap", "03/27/2011 02:30:00.0", "03/27/2011 01:30:00.000000UTC"},
                           {"FirstAfterTheGap", "03/27/2011 03:00:00.0", "03/27/2011 01:00:00.000000UTC"},
                           {"FirstShownTwice", "10/30/2011 02:00:00.0", "10/30/2011 00:00:00.000000UTC"},
                           {"ShownTwice", "10/30/2011 02:30:00.0", "10/30/2011 00:30:00.000000UTC"},
                           {"FirstShownOnce", "10/30/2011 03:00:00.0", "10/30/2011 02:00:00.000000UTC"},
                           {"DayBeyondTheMonth", "02/31/2011 12:00:00.0", "03/03/2011 11:00:00.000000UTC"}};
  for (const JumpCase& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(qm_utils::setLocalTimeZone("Europe/Rome", qm_test::pack({machineZone("Europe/Rome")})));
    JTime time;
    EXPECT_TRUE(qm_utils::parseLocalNtpDate(row.szLocal, time));
    EXPECT_EQ(time.toUSFormat(), row.szUtc);
  }
}

TEST_F(LocalTime, DatesHaveNoSuffixAndKeepTheValidRange) {
  ASSERT_TRUE(qm_utils::setLocalTimeZone("X", qm_test::pack({fixedZone("X", 5400, "XT")})));
  std::string sText;
  qm_utils::formatLocalNtpDate(JTime::fromMicroseconds(12938313599000001), sText);
  EXPECT_EQ(sText, "01/01/2011 01:29:59.000001");
  JTime time = JTime::max();
  EXPECT_FALSE(qm_utils::parseLocalNtpDate("01/01/1970 01:29:59.999999", time));
  EXPECT_EQ(time, JTime());
  EXPECT_TRUE(qm_utils::parseLocalNtpDate("01/01/1970 01:30:00.000000", time));
  EXPECT_EQ(time, JTime::firstQueryTime());
  EXPECT_EQ(JLocalSplitTime(time).toUSFormat(), "01/01/1970 01:30:00.000000XT");
  EXPECT_EQ(JLocalSplitTime("01/01/1970 01:30:00.000000Any").toUSFormat(), "01/01/1970 01:30:00.000000Any");
  EXPECT_EQ(JLocalSplitTime().getTime(), JTime());
}

TEST_F(LocalTime, SettingAZoneIsLoggedAndFollowed) {
  const auto pack = qm_test::pack({fixedZone("Etc/UTC", 0, "UTC"), fixedZone("X", 3600, "XT")});
  EXPECT_TRUE(qm_utils::setLocalTimeZone("X", pack));
  EXPECT_TRUE(m_log.has(qm_err::kLogInfo, "Local time set to 'X'."));
  EXPECT_EQ(qm_utils::getLocalTimeZoneName(), "X");

  EXPECT_TRUE(qm_utils::setLocalTimeZone("X", {}));  // the zone in force: no pack is looked at
  EXPECT_THAT(m_log.messages(), SizeIs(1));

  EXPECT_FALSE(qm_utils::setLocalTimeZone("Y", pack));
  EXPECT_TRUE(m_log.has(qm_err::kLogError,
                        "Local time zone information not found for 'Y'. Will use UTC as local time."));
  EXPECT_THAT(m_log.messages(), SizeIs(2));
  EXPECT_EQ(qm_utils::getLocalTimeZoneName(), "Etc/UTC");
  EXPECT_EQ(JLocalSplitTime(JTime::firstQueryTime()).toUSFormat(), "01/01/1970 00:00:00.000000UTC");

  qm_utils::resetLocalTimeZone();
  EXPECT_THAT(qm_utils::getLocalTimeZoneName(), testing::IsEmpty());
}

TEST_F(LocalTime, ZoneThatCannotBeHadIsUtc) {
  qm_test::PackZone damaged = fixedZone("X", 3600, "XT");
  damaged.types[0].uAbbreviation = 200;
  struct Row {
    std::vector<std::uint8_t> pack;
    const char* szShown;
  };
  for (const Row& row :
       {Row{{}, "01/01/1970 00:00:00.000000UTC"},
        Row{qm_test::pack({damaged}), "01/01/1970 00:00:00.000000UTC"},
        Row{qm_test::pack({fixedZone("Etc/UTC", 7, "OWN")}), "01/01/1970 00:00:07.000000OWN"}}) {
    EXPECT_FALSE(qm_utils::setLocalTimeZone("X", row.pack));
    EXPECT_TRUE(m_log.has(qm_err::kLogError,
                          "Local time zone information not found for 'X'. Will use UTC as local time."));
    EXPECT_EQ(JLocalSplitTime(JTime::firstQueryTime()).toUSFormat(), row.szShown);
  }
}

struct SignCase {
  const char* name;
  const char* szAsked;
  const char* szLookedUp;
};

TEST_F(LocalTime, SignOfANameIsChangedOnTheWayToThePack) {
  const SignCase rows[] = {{"EtcPlus", "Etc/GMT+2", "Etc/GMT-2"},
                           {"EtcMinus", "Etc/GMT-11", "Etc/GMT+11"},
                           {"Plus", "GMT+2", "GMT-2"},
                           {"Minus", "GMT-2", "GMT+2"},
                           {"NoSign", "Etc/GMT", "Etc/GMT"},
                           {"NoSign0", "GMT0", "GMT0"},
                           {"NotAtTheStart", "Own/GMT+2", "Own/GMT+2"},
                           {"Nameless", "", "GMT"}};
  for (const SignCase& row : rows) {
    SCOPED_TRACE(row.name);
    const auto pack = qm_test::pack({fixedZone(row.szLookedUp, 7200, row.szLookedUp)});
    EXPECT_TRUE(qm_utils::setLocalTimeZone(row.szAsked, pack));
    EXPECT_EQ(qm_utils::getLocalTimeZoneName(), row.szLookedUp);
    if (*row.szAsked != '\0') {
      EXPECT_EQ(JLocalSplitTime(JTime()).getZone(), row.szAsked);  // and back in the abbreviation
    }
  }
}

TEST_F(LocalTime, TimeMayHaveAZoneOfItsOwn) {
  const auto pack = qm_test::pack({fixedZone("X", 3600, "XT"), fixedZone("Y", 7200, "YT")});
  ASSERT_TRUE(qm_utils::setLocalTimeZone("X", pack));
  JLocalSplitTime time(JTime::firstQueryTime(), "Y");
  EXPECT_EQ(time.toUSFormat(), "01/01/1970 02:00:00.000000YT");
  EXPECT_EQ(JLocalSplitTime("01/01/1970 02:00:00.000000", "Y").getTime(), JTime::firstQueryTime());
  EXPECT_EQ(JLocalSplitTime(1, 1, 1970, 1, 0, 0, 0, "X").getTime(), JTime::firstQueryTime());
  EXPECT_EQ(qm_utils::getLocalTimeZoneName(), "X");

  EXPECT_EQ(JLocalSplitTime(JTime::firstQueryTime(), "Z").toUSFormat(), "01/01/1970 00:00:00.000000UTC");
  EXPECT_TRUE(m_log.has(qm_err::kLogError,
                        "Local time zone information not found for 'Z'. Will use UTC as local time."));
  qm_utils::resetLocalTimeZone();
  EXPECT_EQ((time.add(0), time.toUSFormat()), "01/01/1970 02:00:00.000000YT");
}

TEST_F(LocalTime, PackStandsBesideTheProgram) {
  const qm_test::TempDir directory;
  std::filesystem::copy_file(probePath(), directory.path("probe"));
  EXPECT_THAT(
      outputOf("TZ=UTC-3 '" + directory.path("probe") + "' X"),
      testing::AllOf(HasSubstr("9 Time zone data '" + directory.path("zoneinfo.pak") + "' can't be read"),
                     HasSubstr("not set 01/01/1970 03:00:00.000000UTC")));

  const auto pack = qm_test::pack({fixedZone("X", 3600, "XT")});
  directory.write("zoneinfo.pak", {pack.begin(), pack.end()});
  EXPECT_EQ(outputOf("'" + directory.path("probe") + "' X"),
            "8 Local time set to 'X'.\nset 01/01/1970 01:00:00.000000XT\n");
  EXPECT_EQ(outputOf("'" + directory.path("probe") + "' Y"),
            "11 Local time zone information not found for 'Y'. Will use UTC as local time.\n"
            "not set 01/01/1970 00:00:00.000000UTC\n");
}

TEST_F(LocalTime, ZoneMayChangeWhileOthersConvert) {
  const auto pack = qm_test::pack({fixedZone("X", 3600, "XT"), fixedZone("Y", 7200, "YT")});
  ASSERT_TRUE(qm_utils::setLocalTimeZone("X", pack));
  std::atomic<bool> bStop = false;
  std::atomic<int> iWrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      do {
        const std::string sShown = JLocalSplitTime(JTime::firstQueryTime()).toUSFormat();
        if (sShown != "01/01/1970 01:00:00.000000XT" && sShown != "01/01/1970 02:00:00.000000YT") {
          ++iWrong;
        }
      } while (!bStop);
    });
  }
  for (int i = 0; i < 100; ++i) {
    qm_utils::setLocalTimeZone(i % 2 == 0 ? "Y" : "X", pack);
  }
  bStop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(iWrong, 0);
}

}  // namespace
