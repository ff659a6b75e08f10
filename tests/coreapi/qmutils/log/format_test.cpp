#include <gmock/gmock.h>
#include <string>

#include "coreapi/qmutils/log/JLogFormat.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace {

JLog::Msg makeRecord() {
  JLog::Msg record;
  record.uLevel = 7;
  record.sMessage = "100%m done";
  record.time = JUTCSplitTime(3, 9, 2011, 7, 5, 4, 23'999).getTime();
  record.uProcessId = 4'000'000'000;
  record.uThreadId = 0xAB;
  record.sInstance = "cam 1";
  record.sUnit = "qmctl";
  record.sHost = "host";
  record.sFile = "a.cpp";
  record.uLine = 77;
  record.sClass = "JFoo";
  return record;
}

std::string expanded(const char* szPattern) {
  const JLog::Msg record = makeRecord();
  std::string sLine = "> ";
  JLogFormat(szPattern).expand(record, record.sMessage, sLine);
  return sLine.substr(2);
}

struct PatternCase {
  const char* name;
  const char* pattern;
  const char* text;
};

class LogFormat : public testing::TestWithParam<PatternCase> {};

TEST_P(LogFormat, Expands) {
  EXPECT_EQ(expanded(GetParam().pattern), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Log, LogFormat,
    testing::Values(PatternCase{"Percent", "%%", "%"}, PatternCase{"PercentThenLetter", "%%m", "%m"},
                    PatternCase{"Class", "%c", "JFoo"}, PatternCase{"File", "%f", "a.cpp"},
                    PatternCase{"Host", "%h", "host"}, PatternCase{"Instance", "%i", "cam 1"},
                    PatternCase{"Line", "%l", "77"}, PatternCase{"MessageIsNotScanned", "%m!", "100%m done!"},
                    PatternCase{"Process", "%p", "4000000000"}, PatternCase{"Thread", "%t", "0x000000ab"},
                    PatternCase{"Unit", "%u", "qmctl"}, PatternCase{"ShortLevel", "%w", "TRACE"},
                    PatternCase{"UpperCase", "%C %F %W", "JFoo a.cpp TRACE"},
                    PatternCase{"OtherLetter", "%q %Q", "%q %Q"}, PatternCase{"NoWidth", "%5m", "%5m"},
                    PatternCase{"PercentAtTheEnd", "a%", "a%"}, PatternCase{"Nothing", "", ""},
                    PatternCase{"Escapes", "a\\nb\\tc\\d", "a\nb\tc\\d"},
                    PatternCase{"EscapesAreReplacedOnce", "\\\\n", "\\\n"},
                    PatternCase{"BackslashAtTheEnd", "a\\", "a\\"},
                    PatternCase{"EscapeMakesNoLetter", "%\\n", "%\n"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(LogFormatTime, IsLocalWithMilliseconds) {
  const JLog::Msg record = makeRecord();
  const JLocalSplitTime local(record.time);
  EXPECT_EQ(expanded("[%d]"), "[" + local.toUSFormat().substr(0, 20) + "023]");
}

TEST(LogFormatTime, FollowsFromSecondToSecond) {
  JLogFormat format("%d ");
  std::string sLine;
  JLog::Msg record = makeRecord();
  for (int i = 0; i < 2; ++i) {
    format.expand(record, "", sLine);
    record.time.add(999'000);
    format.expand(record, "", sLine);
    record.time.subtract(JTime::kMicrosecondsPerSecond * 60);
  }
  JTime time = makeRecord().time;
  std::string sExpected;
  for (const std::int64_t iStep : {0LL, 999'000LL, -60'000'000LL, 999'000LL}) {
    const std::string sText = JLocalSplitTime(time.add(iStep)).toUSFormat();
    sExpected += sText.substr(0, 23) + " ";
  }
  EXPECT_EQ(sLine, sExpected);
}

TEST(LogFormatTime, OutsideTheCalendarShowsItsNearestEnd) {
  JLog::Msg record;
  std::string sLine;
  JLogFormat("%d").expand(record, "", sLine);
  EXPECT_EQ(sLine, JLocalSplitTime(JTime()).toUSFormat().substr(0, 20) + "000");
  record.time = JTime::max();
  sLine.clear();
  JLogFormat("%d").expand(record, "", sLine);
  EXPECT_EQ(sLine, JLocalSplitTime(JTime::max()).toUSFormat().substr(0, 20) + "551");
}

}  // namespace
