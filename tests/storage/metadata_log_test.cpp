#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

#include "storage/MetaDataLog.h"
#include "tests/coreapi/qmutils/rpc/thrownby.h"
#include "tests/storage/wiretext.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

using qm_test::march;
using qm_test::readFile;
using qm_test::readFrom;
using qm_test::span;
using qm_test::spansText;
using qm_test::textOf;
using testing::HasSubstr;

struct Piece {
  std::uint64_t start;
  std::uint64_t end;
  std::string pairs;
};

std::unique_ptr<MetaDataLogRecord> record(const TimeSpan& media, const std::string& sPairs) {
  auto pRecord = std::make_unique<MetaDataLogRecord>();
  pRecord->span = media;
  pRecord->metaData.parse(sPairs);
  return pRecord;
}

void fill(MetaDataLog& log, const std::vector<Piece>& pieces) {
  for (const Piece& piece : pieces) {
    log.addRecord(record(span(piece.start, piece.end), piece.pairs), false);
  }
}

/// "start-end{pairs}" of every record.
std::string contentOf(const MetaDataLog& log) {
  std::string sContent;
  std::string sPairs;
  for (const auto& pRecord : log.getRecords()) {
    pRecord->metaData.toText(sPairs);
    sContent += (sContent.empty() ? "" : " ") + spansText(std::vector{pRecord->span}) + "{" + sPairs + "}";
  }
  return sContent;
}

TEST(MetaDataLog, AddsPairsToASpan) {
  struct Row {
    std::string name;
    std::vector<Piece> before;
    TimeSpan added;
    std::string after;
  };
  const Row rows[] = {
      {"inside a record", {{0, 30, "b=2"}}, span(10, 20), "0-9{b=2} 10-20{a=1, b=2} 21-30{b=2}"},
      {"to an empty log", {}, span(10, 20), "10-20{a=1}"},
      {"next to the same pairs", {{0, 9, "a=1"}}, span(10, 20), "0-20{a=1}"},
      {"over a gap",
       {{0, 9, "b=2"}, {20, 29, "b=2"}},
       span(5, 24),
       "0-4{b=2} 5-9{a=1, b=2} 10-19{a=1} 20-24{a=1, b=2} 25-29{b=2}"},
      {"in front of all", {{50, 60, "b=2"}}, span(10, 20), "10-20{a=1} 50-60{b=2}"},
      {"behind all", {{0, 5, "b=2"}}, span(10, 20), "0-5{b=2} 10-20{a=1}"},
      {"a key takes the new value", {{0, 30, "a=7"}}, span(0, 30), "0-30{a=1}"},
      {"up to the last instant but one", {{0, 19, "b=2"}}, span(10, 20), "0-9{b=2} 10-19{a=1, b=2}"},
      {"an instant is nothing", {{0, 30, "b=2"}}, span(10, 10), "0-30{b=2}"},
      {"to the end of time",
       {{0, 30, "b=2"}},
       {qm_test::at(20), JTime::max()},
       "0-19{b=2} 20-30{a=1, b=2} 31-18446744073709551615{a=1}"},
      {"in a record without end",
       {{0, ~std::uint64_t{0}, "b=2"}},
       {qm_test::at(20), JTime::max()},
       "0-19{b=2} 20-18446744073709551615{a=1, b=2}"},
  };
  for (const Row& row : rows) {
    MetaDataLog log;
    fill(log, row.before);
    log.addMetaData("a=1", row.added, false);
    EXPECT_EQ(contentOf(log), row.after) << row.name;
  }
  MetaDataLog log;
  fill(log, {{0, 30, "b=2"}});
  EXPECT_NE(qm_test::thrownBy([&] { log.addMetaData("=", span(0, 9), false); }), "");
  EXPECT_EQ(contentOf(log), "0-30{b=2}");
}

TEST(MetaDataLog, RemovesKeysFromASpan) {
  struct Row {
    std::string name;
    std::vector<Piece> before;
    std::vector<std::string> keys;
    std::string after;
  };
  const Row rows[] = {
      {"the only key", {{0, 30, "a=1"}}, {"a"}, "0-9{a=1} 21-30{a=1}"},
      {"one of two", {{0, 30, "a=1,b=2"}}, {"a"}, "0-9{a=1, b=2} 10-20{b=2} 21-30{a=1, b=2}"},
      {"by globs", {{10, 20, "ab=1,ac=2,d=3"}}, {"x", "a?"}, "10-20{d=3}"},
      {"all", {{5, 12, "a=1"}, {13, 25, "b=2"}}, {"*"}, "5-9{a=1} 21-25{b=2}"},
      {"a key that isn't there", {{0, 30, "a=1"}}, {"b"}, "0-30{a=1}"},
      {"gaps stay gaps", {{0, 5, "a=1"}, {25, 30, "a=1"}}, {"a"}, "0-5{a=1} 25-30{a=1}"},
  };
  for (const Row& row : rows) {
    MetaDataLog log;
    fill(log, row.before);
    log.removeMetaData(row.keys, span(10, 20), false);
    EXPECT_EQ(contentOf(log), row.after) << row.name;
  }
}

TEST(MetaDataLog, FindsSpansByPairs) {
  MetaDataLog log;
  fill(log, {{0, 1, "n=3"},
             {2, 3, "n=5"},
             {4, 5, "n=7"},
             {6, 7, "d=1.5"},
             {8, 9, "t=\"red car\""},
             {10, 11, "t=\"5\", f=true"}});
  struct Row {
    std::string pairs;
    std::string spans;
  };
  const Row rows[] = {
      {"n=5", "2-3"},
      {"n=\"5..*\"", "2-3 4-5"},
      {"n=\"*..5\"", "0-1 2-3"},
      {"n=\"3, 7\"", "0-1 4-5"},
      {"n=\"1, 6..9\"", "4-5"},
      {"n=\"[3-5]\"", "0-1 2-3"},
      {"n=\"5..x\"", ""},
      {"n=5.0", ""},
      {"[dn]=\"*\"", "0-1 2-3 4-5 6-7"},
      {"d=\"1..2\"", "6-7"},
      {"d=1.5", "6-7"},
      {"t=\"red*\"", "8-9"},
      {"t=\"blue*, red*\"", "8-9"},
      {"t=5", "10-11"},
      {"t=\"5..6\"", ""},
      {"f=\"on\", t=\"*\"", "10-11"},
      {"f=false", ""},
      {"f=\"maybe\"", ""},
      {"n=5, t=\"*\"", ""},
      {"", "0-1 2-3 4-5 6-7 8-9 10-11"},
  };
  for (const Row& row : rows) {
    JParams pairs;
    pairs.parse(row.pairs);
    TimeSpanList list;
    log.getSpans(list, pairs);
    EXPECT_EQ(spansText(list), row.spans) << row.pairs;
  }
}

TEST(MetaDataLog, FindsSpansByNames) {
  MetaDataLog log;
  fill(log, {{0, 1, "abc=1"}, {2, 3, "x=1,b=1"}, {4, 5, ""}});
  const auto find = [&log](const std::vector<std::string>& names) {
    TimeSpanList list;
    log.getSpans(list, names);
    return spansText(list);
  };
  EXPECT_EQ(find({"a*", "q"}), "0-1");
  EXPECT_EQ(find({"b"}), "2-3");
  EXPECT_EQ(find({"*", "q"}), "0-1 2-3");
  EXPECT_EQ(find({"*"}), "0-1 2-3 4-5");
  EXPECT_EQ(find({}), "0-1 2-3 4-5");
}

TEST(MetaDataLog, TravelsAndShowsItsRows) {
  MetaDataLog log;
  log.addMetaData("b=\"x\ty\",a=1", {march(10), march(11)}, false);
  EXPECT_EQ(textOf(log),
            "MetaDataLog_X__MetaDataLogRecord_set0__MetaData=\"a=1, b=\\\"x\\\\ty\\\"\", "
            "MetaDataLog_X__MetaDataLogRecord_set0__SpanEndDate=12943623600000000, "
            "MetaDataLog_X__MetaDataLogRecord_set0__SpanStartDate=12943620000000000, MetaDataLog_X__size=1");
  MetaDataLog read;
  readFrom(textOf(log), read);
  read.rewind();
  EXPECT_EQ(read.getNext()->toString(),
            "SpanStartDate=\"03/03/2011 10:00:00.000000UTC\",SpanEndDate=\"03/03/2011 11:00:00.000000UTC\","
            "a=1, b=\"x\\ty\"");
  EXPECT_EQ(read.getNext(), nullptr);
}

TEST(MetaDataLog, KeepsItsFile) {
  const qm_test::TempDir dir;
  const std::string sFile = dir.path("metadata.log");
  MetaDataLog log(sFile);
  EXPECT_EQ(readFile(sFile), "");
  log.addMetaData("a=1", {march(10), march(11)}, true);
  const std::string sLine = "03/03/2011 10:00:00.000000UTC\t03/03/2011 11:00:00.000000UTC\ta=1\r\n";
  EXPECT_EQ(readFile(sFile), sLine);
  auto pOdd = std::make_unique<MetaDataLogRecord>();
  pOdd->metaData.add("no name", 1);
  EXPECT_NE(qm_test::thrownBy([&] { log.addRecord(std::move(pOdd), true); }), "");
  MetaDataLog read(sFile);
  EXPECT_EQ(read.getRecords().size(), 1U);
  read.deleteRecord(read.getNext(), true);
  EXPECT_EQ(readFile(sFile), "");
}

TEST(MetaDataLog, ReadsOnBehindBadLines) {
  const qm_test::TempDir dir;
  const std::string sTen = "03/03/2011 10:00:00.000000UTC\t";
  const std::string sFile =
      dir.write("metadata.log",
                sTen + "03/03/2011 09:00:00.000000UTC\ta=1\r\n" + "bad\tline\r\n" + sTen + sTen + "a=@\r\n" +
                    "06/01/2050 00:00:00.000000UTC\t06/01/2050 00:00:00.000000UTC\tb=[[3]x\ty]\r\n" +
                    "03/03/2011 10:00:00.000001UTC\t03/03/2011 10:30:00.000000UTC\ta=1");
  const qm_test::LogCapture capture;
  const JTime before = JTime::now();
  const MetaDataLog log(sFile);
  const std::string sHead = "init() - Error parsing metadata log - file: \"" + sFile + "\", line: \"";
  EXPECT_TRUE(capture.has(qm_err::kLogError, sHead + "bad\tline\".\n"));
  ASSERT_EQ(log.getRecords().size(), 2U);
  const MetaDataLogRecord* const pJoined = log.getNext();
  EXPECT_EQ(pJoined->span, TimeSpan(march(10), march(10, 30)));
  const MetaDataLogRecord* const pNow = log.getNext();
  EXPECT_TRUE(before <= pNow->span.startDate && pNow->span.endDate <= JTime::now());
  EXPECT_TRUE(pNow->metaData.find("b") != nullptr);
}

}  // namespace
