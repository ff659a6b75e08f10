// Parameter lists in the shape of a search answer: 200,000 groups of 5 values (a text, two integers, a
// double, a boolean) under keys of about 75 bytes that share all but the last few. The peer reads and writes
// the JSON object of the same keys and values, in the same order; its in-situ parse gets a fresh copy of its
// text that isn't counted, and its Writer writes the document that it has read.
//
//   parse, name order            the order in which a list is written
//   parse, row order             rows by number (2 before 10), the members of a row by name
//   parse, row order, mixed      rows by number, the members of a row in no order
//   parse, shuffled              for the record
//   parse, name order, copying   against the parse that leaves its text alone, for the record
//   write
//   parse, a million groups      entries a second, against 200,000 groups
//   write, a million groups      the same
//   read row by row              every value by its whole name, rows by number, against std::unordered_map
//   memory of a list             bytes of heap for each byte of text

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "bench/support/compare.h"
#include "coreapi/qmutils/params/jparams.h"

namespace {

constexpr std::size_t kRows = 200'000;
constexpr std::size_t kManyRows = 1'000'000;
constexpr std::size_t kMembers = 5;

struct Entry {
  std::string name;
  std::string value;  // both text forms write the values alike
};

enum class Order { Name, Row, RowMixed, Shuffled };

std::vector<Entry> makeEntries(std::size_t rows, Order eOrder) {
  std::vector<Entry> entries;
  entries.reserve(rows * kMembers);
  for (std::size_t row = 0; row < rows; ++row) {
    const std::string sPrefix =
        "StorageSearchResultSet_StorageSearchResultSet__StorageSearchItem_set" + std::to_string(row) + "__";
    const std::size_t start = 12'943'612'800'000'000 + row * 60'000'000;
    char szRate[32];
    std::snprintf(szRate, sizeof szRate, "%zu.%zu", 1 + row % 60, 1 + row % 9);
    entries.push_back({sPrefix + "Source", "\"entrance camera " + std::to_string(row % 640) + "\""});
    entries.push_back({sPrefix + "Start", std::to_string(start)});
    entries.push_back({sPrefix + "End", std::to_string(start + 59'960'000)});
    entries.push_back({sPrefix + "Fps", szRate});
    entries.push_back({sPrefix + "Alarm", row % 3 == 0 ? "true" : "false"});
    if (eOrder != Order::RowMixed) {
      std::sort(entries.end() - kMembers, entries.end(),
                [](const Entry& left, const Entry& right) { return left.name < right.name; });
    }
  }
  if (eOrder == Order::Name) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& left, const Entry& right) { return left.name < right.name; });
  } else if (eOrder == Order::Shuffled) {
    std::shuffle(entries.begin(), entries.end(), std::mt19937_64(1));
  }
  return entries;
}

std::string makeText(const std::vector<Entry>& entries) {
  std::string sText;
  for (const Entry& entry : entries) {
    sText.append(sText.empty() ? "" : ", ").append(entry.name).append("=").append(entry.value);
  }
  return sText;
}

std::string makeJson(const std::vector<Entry>& entries) {
  std::string sJson = "{";
  for (const Entry& entry : entries) {
    sJson.append(sJson.size() == 1 ? "\"" : ",\"").append(entry.name).append("\":").append(entry.value);
  }
  return sJson.append("}");
}

double parseSeconds(const std::string& sText) {
  JParams params;
  const double result = qm_bench::seconds([&] { params.parse(sText); });
  qm_bench::keep(params.getCount());
  return result;
}

double parseInsituSeconds(const std::string& sJson) {
  std::string sCopy = sJson;
  rapidjson::Document document;
  const double result = qm_bench::seconds([&] { document.ParseInsitu(sCopy.data()); });
  qm_bench::keep(document.MemberCount());
  return result;
}

double parseCopyingSeconds(const std::string& sJson) {
  rapidjson::Document document;
  const double result = qm_bench::seconds([&] { document.Parse(sJson.c_str()); });
  qm_bench::keep(document.MemberCount());
  return result;
}

double writeSeconds(const JParams& params) {
  std::string sText;
  const double result = qm_bench::seconds([&] { params.toText(sText); });
  qm_bench::keep(sText.size());
  return result;
}

double writeJsonSeconds(const rapidjson::Document& document) {
  rapidjson::StringBuffer buffer;
  const double result = qm_bench::seconds([&] {
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
  });
  qm_bench::keep(buffer.GetSize());
  return result;
}

void compareParse(const std::string& sName, Order eOrder, double dGoal) {
  const std::vector<Entry> entries = makeEntries(kRows, eOrder);
  const std::string sText = makeText(entries);
  const std::string sJson = makeJson(entries);
  qm_bench::compare(
      {"parse, " + sName, "RapidJSON DOM, in situ", dGoal}, [&] { return parseSeconds(sText); },
      [&] { return parseInsituSeconds(sJson); });
  if (eOrder == Order::Name) {
    qm_bench::compare(
        {"parse, " + sName + ", copying", "RapidJSON DOM"}, [&] { return parseSeconds(sText); },
        [&] { return parseCopyingSeconds(sJson); });
  }
  if (eOrder == Order::Name || eOrder == Order::Row) {
    const std::size_t before = qm_bench::heapInUse();
    JParams params;
    params.parse(sText);
    qm_bench::report("memory of a list, " + sName,
                     static_cast<double>(qm_bench::heapInUse() - before) / static_cast<double>(sText.size()),
                     "bytes a byte of text", 3.0);
  }
}

void compareWrite() {
  const std::vector<Entry> entries = makeEntries(kRows, Order::Name);
  JParams params;
  params.parse(makeText(entries));
  const std::string sJson = makeJson(entries);
  rapidjson::Document document;
  document.Parse(sJson.c_str());
  qm_bench::compare(
      {"write", "RapidJSON Writer", 1.2}, [&] { return writeSeconds(params); },
      [&] { return writeJsonSeconds(document); });
}

void compareSizes() {
  const std::string sFew = makeText(makeEntries(kRows, Order::Name));
  const std::string sMany = makeText(makeEntries(kManyRows, Order::Name));
  const std::string sManyByRow = makeText(makeEntries(kManyRows, Order::Row));
  const std::string sFewByRow = makeText(makeEntries(kRows, Order::Row));
  constexpr double kRatio = static_cast<double>(kManyRows) / static_cast<double>(kRows);
  const std::string sPeer = "200,000 groups";
  qm_bench::compare(
      {"parse, a million groups, name order", sPeer, 0.7, 5}, [&] { return parseSeconds(sMany) / kRatio; },
      [&] { return parseSeconds(sFew); });
  qm_bench::compare(
      {"parse, a million groups, row order", sPeer, 0.7, 5},
      [&] { return parseSeconds(sManyByRow) / kRatio; }, [&] { return parseSeconds(sFewByRow); });
  JParams few;
  few.parse(sFew);
  JParams many;
  many.parse(sMany);
  qm_bench::compare(
      {"write, a million groups", sPeer, 0.7, 5}, [&] { return writeSeconds(many) / kRatio; },
      [&] { return writeSeconds(few); });
}

/// Asks for every text and every number by its name, in the order of the rows' numbers.
void compareReading() {
  const std::vector<Entry> entries = makeEntries(kRows, Order::Row);
  JParams params;
  params.parse(makeText(entries));
  std::unordered_map<std::string, std::string> map;
  for (const Entry& entry : entries) {
    map.emplace(entry.name, entry.value);
  }
  std::size_t size = 0;
  std::string sValue;
  qm_bench::compare(
      {"read row by row", "std::unordered_map of texts"},
      [&] {
        return qm_bench::seconds([&] {
          for (const Entry& entry : entries) {
            params.get(entry.name, sValue, true);
            size += sValue.size();
          }
        });
      },
      [&] {
        return qm_bench::seconds([&] {
          for (const Entry& entry : entries) {
            sValue = map.find(entry.name)->second;
            size += sValue.size();
          }
        });
      });
  qm_bench::keep(size);
}

}  // namespace

int main() {
  compareParse("name order", Order::Name, 2.0);
  compareParse("row order", Order::Row, 1.0);
  compareParse("row order, mixed", Order::RowMixed, 1.0);
  compareParse("shuffled", Order::Shuffled, 0.0);
  compareWrite();
  compareSizes();
  compareReading();
  return 0;
}
