#include <gmock/gmock.h>
#include <string>

#include "coreapi/qmutils/log/JLogFormat.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"

namespace {

JLog::Msg makeRecord() {
  JLog::Msg record = qm_test::fullRecord();
  record.uLevel = 7;
  record.sMessage = "100%m done";
  record.time = JUTCSplitTime(3, 9, 2011, 7, 5, 4, 23'999).getTime();
  record.uProcessId = 4'000'000'000;
  record.uThreadId = 0xAB;
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
                    PatternCase{"Host", "%h", "h"}, PatternCase{"Instance", "%i", "cam 1"},
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

/// The local time that a log line shows: the calendar form, cut to milliseconds.
std::string shownTime(JTime time) {
  return JLocalSplitTime(time).toUSFormat().substr(0, 23);
}

TEST(LogFormatTime, IsLocalWithMillisecondsFromSecondToSecond) {
  JLogFormat format("%d ");
  JLog::Msg record = makeRecord();
  std::string sLine;
  std::string sExpected;
  for (const std::int64_t iStep : {0, 999'000, -60'000'000, 1'000'000}) {
    record.time.add(iStep);
    format.expand(record, "", sLine);
    sExpected += shownTime(record.time) + " ";
  }
  EXPECT_EQ(sLine, sExpected);
  for (const JTime time : {JTime(), JTime::max()}) {  // outside the calendar: its nearest end
    record.time = time;
    sLine.clear();
    format.expand(record, "", sLine);
    EXPECT_EQ(sLine, shownTime(time) + " ");
  }
}

}  // namespace
