#include <cerrno>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <string>

#include "coreapi/platform/faultseam.h"
#include "storage/AlarmLog.h"
#include "storage/ProtectedLog.h"
#include "tests/storage/wiretext.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::at;
using qm_test::march;
using qm_test::readFile;
using qm_test::readFrom;
using qm_test::span;
using qm_test::spansText;
using qm_test::TempDir;
using qm_test::textOf;
using qm_test::thrownBy;
using testing::HasSubstr;

const std::string kTen = "03/03/2011 10:00:00.000000UTC";
const std::string kEleven = "03/03/2011 11:00:00.000000UTC";
const std::string kProtection = kTen + "\t" + kEleven + "\t" + kTen + "\t" + kEleven + "\t";
const std::string kAlarm = kTen + "\tdoor\t" + kTen + "\t" + kEleven + "\n";

std::unique_ptr<ProtectedLogRecord> protection(const TimeSpan& media, const std::string& sDetails = "d") {
  return std::make_unique<ProtectedLogRecord>(media, span(1, 2), sDetails);
}

std::unique_ptr<AlarmLogRecord> alarm(const std::string& sName, const TimeSpan& media) {
  return std::make_unique<AlarmLogRecord>(sName, march(10), media);
}

template <class Log>
std::string rows(const Log& log) {
  std::string sRows;
  log.rewind();
  while (const auto* pRecord = log.getNext()) {
    sRows += pRecord->toString() + "\n";
  }
  return sRows;
}

template <class Log>
std::string coveredBy(const Log& log) {
  TimeSpanList list;
  for (const auto& pRecord : log.getRecords()) {
    list.push_back(pRecord->coveredSpan());
  }
  return spansText(list);
}

/// The shared limit of alarm logs, put back at the end.
struct LimitGuard {
  ~LimitGuard() { AlarmLog::setLimits(AlarmLog::kDefaultMaxRecords, true); }
};

TEST(ProtectedLog, TravelsInTheOrderOfStarts) {
  ProtectedLog log;
  EXPECT_EQ(log.getNext(), nullptr);
  log.addRecord(protection(span(20, 30), "b"), false);
  log.addRecord(protection(span(10, 40), "a"), false);
  log.addRecord(protection(span(20, 25), "c"), false);
  const std::string sText = textOf(log);
  EXPECT_THAT(sText, HasSubstr("ProtectedLog_X__ProtectedLogRecord_set2__Details=\"c\", "));
  EXPECT_THAT(sText, HasSubstr("ProtectedLog_X__ProtectedLogRecord_set0__ProtectedStartDate=10, "));
  ProtectedLog read;
  read.addRecord(protection(span(1, 2)), false);
  readFrom(sText, read);
  EXPECT_EQ(rows(read), rows(log));
  EXPECT_EQ(coveredBy(read), "10-40 20-30 20-25");
  EXPECT_EQ(rows(ProtectedLog(read)), rows(log));
  EXPECT_NE(thrownBy([&] { readFrom("ProtectedLog_X__size=1", read); }), "");
  EXPECT_EQ(ProtectedLogRecord({march(10), march(11)}, {march(10), JTime::max()}, "by \"me\"").toString(),
            "ProtectedStartDate=\"" + kTen + "\",ProtectedEndDate=\"" + kEleven + "\",ValidityStartDate=\"" +
                kTen + "\",ValidityEndDate=\"01/19/2038 03:14:07.551615UTC\",Details=\"by \"me\"\"");
}

TEST(ProtectedLog, TakesSpansOut) {
  struct Row {
    std::string name;
    TimeSpan record;
    std::string rest;
  };
  const Row table[] = {
      {"inside", span(5, 30), "5-9 21-30"},
      {"the same", span(10, 20), ""},
      {"from its end on", span(20, 30), "21-30"},
      {"up to its start", span(5, 10), "5-9"},
      {"apart", span(21, 30), "21-30"},
      {"to the end of time", {at(15), JTime::max()}, "21-18446744073709551615"},
  };
  for (const Row& row : table) {
    ProtectedLog log;
    log.addRecord(protection(row.record, "kept"), false);
    log.removeSpan(span(10, 20), false);
    EXPECT_EQ(coveredBy(log), row.rest) << row.name;
    for (const auto& pRecord : log.getRecords()) {
      EXPECT_TRUE(pRecord->details == "kept" && pRecord->validitySpan == span(1, 2)) << row.name;
    }
  }
}

TEST(ProtectedLog, KeepsItsFile) {
  const TempDir dir;
  const std::string sFile = dir.path("protection.log");
  {
    ProtectedLog log;
    log.init(sFile, at(5));
    EXPECT_EQ(readFile(sFile), "ProtectionPeriod=5\n");
    log.addRecord(std::make_unique<ProtectedLogRecord>(TimeSpan(march(10), march(11)),
                                                       TimeSpan(march(10), march(11)), "by\toperator"),
                  true);
    log.addRecord(protection({at(0), JTime::max()}, "open"), true);
    EXPECT_EQ(readFile(sFile),
              "ProtectionPeriod=5\n01/01/1601 00:00:00.000000UTC\t01/19/2038 03:14:07.551615UTC\t"
              "01/01/1601 00:00:00.000001UTC\t01/01/1601 00:00:00.000002UTC\topen\n" +
                  kProtection + "by\toperator\n");
    EXPECT_NE(thrownBy([&] { log.addRecord(protection(span(1, 2), "two\nlines"), true); }), "");
    EXPECT_EQ(log.getRecords().size(), 2U);
    log.addRecord(protection(span(1, 2), "two\nlines"), false);
    log.addRecord(protection(span(1, 2), std::string(262, 'x') + "\u00e9\u00e9"), true);
  }
  ProtectedLog log(sFile);
  EXPECT_EQ(log.getProtectionPeriod(), at(5));
  ASSERT_EQ(log.getRecords().size(), 4U);
  EXPECT_EQ((*std::next(log.getRecords().begin()))->details, "two lines");
  EXPECT_EQ((*std::next(log.getRecords().begin(), 2))->details, std::string(262, 'x'));
  EXPECT_EQ((*std::prev(log.getRecords().end()))->details, "by\toperator");
  log.removeSpan({at(0), march(12)}, true);
  log.setPeriods(at(8), at(9));
  EXPECT_EQ(readFile(sFile),
            "ProtectionPeriod=8\n03/03/2011 12:00:00.000001UTC\t01/19/2038 03:14:07.551615UTC\t"
            "01/01/1601 00:00:00.000001UTC\t01/01/1601 00:00:00.000002UTC\topen\n");
  EXPECT_EQ(ProtectedLog::readProtectionPeriod(sFile), at(8));
}

TEST(ProtectedLog, ReadsFilesOfManyKinds) {
  struct Row {
    std::string name;
    std::string content;
    std::uint64_t period;  ///< given to init
    std::uint64_t periodAfter;
    std::string details;  ///< of the first record
    bool readWhole;
  };
  const Row table[] = {
      {"the file's period", "ProtectionPeriod=7\n", 0, 7, "", true},
      {"the given period goes first", "ProtectionPeriod=7\n", 5, 5, "", true},
      {"a period that is no number", "ProtectionPeriod=x\n", 0, 0, "", true},
      {"the other period", "PrepostProtectionPeriod=9\nProtectionPeriod=7\n", 0, 7, "", true},
      {"four fields", kTen + "\t" + kEleven + "\t" + kTen + "\t" + kEleven + "\n", 0, 0, "", true},
      {"no line end, and the other one", "ProtectionPeriod=7\r\n" + kProtection + "d", 0, 7, "d", true},
      {"three fields", kProtection + "d\na\tb\tc\n" + kProtection + "lost\n", 0, 0, "d", false},
      {"empty line", kProtection + "d\n\n", 0, 0, "d", false},
  };
  for (const Row& row : table) {
    const TempDir dir;
    const std::string sFile = dir.write("protection.log", row.content);
    const qm_test::LogCapture capture;
    ProtectedLog log;
    log.init(sFile, at(row.period));
    EXPECT_EQ(log.getProtectionPeriod(), at(row.periodAfter)) << row.name;
    const auto* const pFirst = log.getNext();
    EXPECT_EQ(pFirst != nullptr ? pFirst->details : "", row.details) << row.name;
    EXPECT_EQ(capture.has(qm_err::kLogError,
                          "init() - Error creating protected log \"" + sFile + "\": parse error\n"),
              !row.readWhole)
        << row.name;
    if (!row.readWhole) {
      EXPECT_NE(thrownBy([&] { log.addRecord(protection(span(1, 2)), true); }), "") << row.name;
      EXPECT_EQ(readFile(sFile), row.content) << row.name;
      EXPECT_EQ(log.getRecords().size(), 1U) << row.name;
    }
  }
  const TempDir dir;
  const std::string sFile = dir.write("protection.log", "Protection=1\n");
  EXPECT_EQ(thrownBy([&] { ProtectedLog::readProtectionPeriod(sFile); }),
            "No Protection Period found in file " + sFile);
  EXPECT_NE(thrownBy([&] { ProtectedLog::readProtectionPeriod(sFile + "x"); }), "");
}

TEST(ArchiveLogs, DatesOfAllYearsComeThroughAFile) {
  const TempDir dir;
  const std::string sContent =
      "ProtectionPeriod=0\n01/01/1601 00:00:00.000000UTC\t06/05/2050 01:02:03.000004UTC\t"
      "01/01/1601 00:00:00.000000UTC\t12/31/9999 23:59:59.999999UTC\td\n";
  const std::string sFile = dir.write("protection.log", sContent);
  ProtectedLog log(sFile);
  ASSERT_EQ(log.getRecords().size(), 1U);
  EXPECT_EQ(log.getNext()->protectedSpan, TimeSpan(at(0), JTime::fromUnixSeconds(2'538'003'723).add(4)));
  log.setProtectionPeriod(at(0));
  EXPECT_EQ(readFile(sFile), sContent);
}

// Whatever call of the system fails, the file holds the old log or the new one, and the caller is told.
TEST(ArchiveLogs, AFailedStoreLeavesTheOldFileOrTheNewOne) {
  for (std::uint64_t uCall = 1;; ++uCall) {
    const TempDir dir;
    const std::string sFile = dir.path("alarm.log");
    AlarmLog log(sFile);
    log.addRecord(alarm("door", {march(10), march(11)}), true);
    ASSERT_EQ(readFile(sFile), kAlarm);
    const qm_test::LogCapture capture;
    qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kFile), uCall,
                            qm_platform::FaultKind::kError, EIO, false});
    const std::string sError = thrownBy([&] { log.removeSpan("*", {march(0), march(23)}, true); });
    const bool bFailed = qm_platform::disarmFaults();
    const std::string sAfter = readFile(sFile);
    EXPECT_TRUE(sAfter == kAlarm || sAfter.empty()) << uCall;
    EXPECT_TRUE(!sError.empty() || sAfter.empty()) << uCall;
    if (!bFailed) {
      EXPECT_EQ(sError, "");
      break;
    }
  }
}

// What a lack of memory takes from a log in memory must not be taken from its file by the next store.
TEST(ArchiveLogs, AChangeThatBrokeOffKeepsTheLogFromBeingStored) {
  LogRecords<ProtectedLogRecord> records;
  records.append(protection(span(1, 2)));
  records.append(protection(span(3, 4)));
  records.rewind();
  records.checkWhole();
  EXPECT_THROW(records.rebuild([](auto /*pRecord*/) { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_EQ(records.next(), nullptr);
  EXPECT_NE(thrownBy([&] { records.checkWhole(); }), "");
  records.clear();
  records.checkWhole();
}

TEST(AlarmLog, KeepsItsFile) {
  const TempDir dir;
  const std::string sFile = dir.path("alarm.log");
  AlarmLog log(sFile);
  EXPECT_EQ(readFile(sFile), "");
  log.addRecord(alarm("door", {march(10), march(11)}), true);
  EXPECT_EQ(readFile(sFile), kAlarm);
  for (const std::string& sName : {std::string("a\tb"), std::string("a\nb"), std::string(200, 'x')}) {
    EXPECT_NE(thrownBy([&] { log.addRecord(alarm(sName, span(1, 2)), true); }), "") << sName;
  }
  log.addRecord(alarm(std::string(300, 'x'), {march(11), march(12)}), false);
  log.addRecord(alarm("gate", {march(12), march(13)}), true);
  AlarmLog read(sFile);
  EXPECT_EQ(read.getRecords().size(), 3U);
  EXPECT_EQ((*std::next(read.getRecords().begin()))->span, TimeSpan(march(11), march(12)));
  EXPECT_EQ(read.getNext()->toString(), "Name=\"door\",SpanStartDate=\"" + kTen + "\",SpanEndDate=\"" +
                                            kEleven + "\",AlarmDate=\"" + kTen + "\"");

  for (const std::string& sBad :
       {kTen + "\tdoor\t" + kTen + "\n", kTen + "\tdoor\t" + kTen + "\t" + kEleven + "\tx\n"}) {
    const qm_test::LogCapture capture;
    read.init(dir.write("bad.log", kAlarm + sBad));
    EXPECT_EQ(read.getRecords().size(), 1U);
    EXPECT_TRUE(capture.has(qm_err::kLogError, "init() - Error creating alarm log \"" + dir.path("bad.log") +
                                                   "\": parse error\n"));
  }
  read.init(sFile);
  read.addRecord(alarm("more", {march(14), march(15)}), true);
  EXPECT_THAT(readFile(sFile), HasSubstr("more"));
}

TEST(AlarmLog, HoldsNoMoreThanTheLimit) {
  const LimitGuard guard;
  const std::uint64_t uBefore = AlarmLog::getTotalRecords();
  AlarmLog log;
  AlarmLog::setLimits(2, true);
  for (const std::uint64_t uStart : {30U, 10U, 20U}) {
    log.addRecord(alarm("a", span(uStart, 40)), false);
  }
  EXPECT_EQ(coveredBy(log), "20-40 30-40");
  AlarmLog::setLimits(0, false);
  log.addRecord(alarm("a", span(25, 40)), false);
  EXPECT_EQ(coveredBy(log), "20-40 30-40");
  {
    const AlarmLog copy(log);
    EXPECT_EQ(AlarmLog::getTotalRecords(), uBefore + 4);
  }
  log.rewind();
  log.removeRecord(log.getRecords().begin(), false);
  EXPECT_EQ(AlarmLog::getTotalRecords(), uBefore + 1);
  EXPECT_EQ(log.getNext()->span, span(30, 40));  // the cursor has moved on
}

TEST(AlarmLog, ChangesTheAlarmsThatAreNamed) {
  AlarmLog log;
  log.addRecord(alarm("door 1", span(0, 100)), false);
  log.addRecord(alarm("gate", span(0, 100)), false);
  log.addRecord(alarm("door 2", span(50, 60)), false);
  EXPECT_EQ(log.endAlarms("door*", at(60), false), 1U);
  log.removeSpan("door ?", span(40, 55), false);
  TimeSpanList doors;
  log.getSpans(doors, "door*");
  EXPECT_EQ(spansText(doors), "0-39 56-60 56-60");
  std::set<std::string> names;
  log.getAlarmNames(names);
  EXPECT_THAT(names, testing::ElementsAre("door 1", "door 2", "gate"));
  AlarmLog read;
  readFrom(textOf(log), read);
  EXPECT_EQ(rows(read), rows(log));
}

}  // namespace
