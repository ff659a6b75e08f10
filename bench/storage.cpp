// Searches and logs.
//
//   answer to rows, 200,000 rows     from the text of an answer to every row as text: parse, deserialise, and
//                                    the rows one by one; against RapidJSON's DOM on the JSON of the same
//                                    keys, whose members are put into a hash table to be found by name
//   answer to rows, simdjson         the same answer against its on-demand parser, which takes the members in
//                                    the order in which they stand; for the record
//   answer to rows, a million rows   rows a second, against 200,000 rows
//   memory of an answer              peak of a process that does it, line included, for each byte of the line
//   unite, intersect, subtract       a new list of two of a million spans, against a new set of Boost.ICL,
//   and
//                                    against std::merge
//   glob, both doubled               time of a pattern of many stars that fails at its end, for a pattern and
//                                    a text of twice the length; 4 is in step with pattern times text

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>
#include <simdjson.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include <boost/icl/interval_set.hpp>

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>

#include "bench/support/compare.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "coreapi/qmutils/text/jglob.h"
#include "storage/StorageSearchImpl.h"
#include "storage/TimeSpan.h"

namespace {

constexpr std::uint32_t kRows = 200'000;
constexpr std::uint32_t kManyRows = 1'000'000;
constexpr std::size_t kSpans = 1'000'000;

constexpr const char* kSetName = "StorageSearchResultSet";
const std::string kPrefix = "StorageSearchResultSet_StorageSearchResultSet__";

/// The answer of a server: gaps cut the records of 640 sources into rows of some minutes.
std::string makeAnswer(std::uint32_t uRows) {
  StorageSearchResultSetImpl set;
  std::uint64_t uStart = 12'943'612'800'000'000;
  for (std::uint32_t uRow = 0; uRow < uRows; ++uRow) {
    const TimeSpan span(JTime::fromMicroseconds(uStart), JTime::fromMicroseconds(uStart + 299'960'000));
    set.add(new StorageSearchItemImpl(span, "entrance camera " + std::to_string(uRow % 640),
                                      static_cast<std::int32_t>(1 + uRow % 60),
                                      uRow % 5 == 0 ? "audio/x-qmmp3" : "video/x-qmv2"));
    uStart += 300'123'457;
  }
  JParams params;
  JRPCSerialisation(&params).serialise(kSetName, set);
  std::string sText;
  params.toText(sText);
  sText.shrink_to_fit();
  return sText;
}

/// The same keys and values as JSON. Neither form has anything to escape here.
std::string makeJson(const std::string& sAnswer) {
  std::string sJson = "{\"";
  sJson.reserve(sAnswer.size() * 5 / 4);
  for (std::size_t at = 0; at < sAnswer.size(); ++at) {
    if (sAnswer[at] == '=') {
      sJson += "\":";
    } else if (sAnswer[at] == ',') {
      sJson += ",\"";
      ++at;
    } else {
      sJson += sAnswer[at];
    }
  }
  return sJson + "}";
}

/// Bytes of all rows, which come one by one.
std::size_t sizeOfRows(const StorageSearchResultSet& set) {
  std::size_t uSize = 0;
  for (std::uint32_t uRow = 0; uRow < set.size(); ++uRow) {
    uSize += set.at(uRow)->toString().size();
  }
  return uSize;
}

std::size_t readAnswer(const std::string& sAnswer) {
  JParams params;
  params.parse(sAnswer);
  JRPCDeserialisation source(&params, false);
  StorageSearchResultSetImpl set;
  source.deserialise(kSetName, set, true);
  return sizeOfRows(set);
}

std::size_t readWithRapidJson(std::string sJson) {
  rapidjson::Document document;
  document.ParseInsitu(sJson.data());
  std::unordered_map<std::string_view, const rapidjson::Value*> members(document.MemberCount());
  for (const auto& member : document.GetObject()) {
    members.emplace(std::string_view(member.name.GetString(), member.name.GetStringLength()), &member.value);
  }
  StorageSearchResultSetImpl set;
  std::string sKey;
  const unsigned uRows = members.at(kPrefix + "size")->GetUint();
  for (unsigned uRow = 0; uRow < uRows; ++uRow) {
    const std::string sRow = kPrefix + "TimeSpan_vec" + std::to_string(uRow) + "__";
    const auto member = [&](std::string_view sName) -> const rapidjson::Value& {
      return *members.at(sKey.assign(sRow).append(sName));
    };
    const rapidjson::Value& source = member("SourceName");
    const rapidjson::Value& type = member("DataType");
    set.add(new StorageSearchItemImpl({JTime::fromMicroseconds(member("StartDate").GetUint64()),
                                       JTime::fromMicroseconds(member("EndDate").GetUint64())},
                                      {source.GetString(), source.GetStringLength()}, member("FPS").GetInt(),
                                      {type.GetString(), type.GetStringLength()}));
  }
  return sizeOfRows(set);
}

std::size_t readWithSimdJson(const simdjson::padded_string& json) {
  simdjson::ondemand::parser parser;
  simdjson::ondemand::document document = parser.iterate(json);
  std::vector<std::string> sources(kRows);
  std::vector<std::string> types(kRows);
  std::vector<std::int32_t> rates(kRows);
  std::vector<TimeSpan> spans(kRows);
  const std::size_t uIndexAt = kPrefix.size() + std::string_view("TimeSpan_vec").size();
  for (auto field : document.get_object()) {
    const std::string_view sKey = field.unescaped_key();
    if (sKey.size() <= uIndexAt) {
      continue;
    }
    const std::size_t uRow = std::strtoul(sKey.data() + uIndexAt, nullptr, 10);
    const std::string_view sName = sKey.substr(sKey.rfind('_') + 1);
    switch (sName[0]) {
      case 'S':
        if (sName == "SourceName") {
          sources[uRow] = std::string_view(field.value().get_string());
        } else {
          spans[uRow].startDate = JTime::fromMicroseconds(field.value().get_uint64());
        }
        break;
      case 'E':
        spans[uRow].endDate = JTime::fromMicroseconds(field.value().get_uint64());
        break;
      case 'F':
        rates[uRow] = static_cast<std::int32_t>(field.value().get_int64());
        break;
      default:
        types[uRow] = std::string_view(field.value().get_string());
    }
  }
  StorageSearchResultSetImpl set;
  for (std::size_t uRow = 0; uRow < kRows; ++uRow) {
    set.add(new StorageSearchItemImpl(spans[uRow], sources[uRow], rates[uRow], types[uRow]));
  }
  return sizeOfRows(set);
}

/// Seconds of a reading, whose result must be as expected.
template <class Read>
double timed(std::size_t uExpected, Read read) {
  std::size_t uSize = 0;
  const double dSeconds = qm_bench::seconds([&] { uSize = read(); });
  if (uSize != uExpected) {
    std::printf("the sides disagree: %zu and %zu bytes of rows\n", uSize, uExpected);
    std::exit(1);
  }
  return dSeconds;
}

void compareAnswers() {
  const std::string sAnswer = makeAnswer(kRows);
  const std::size_t uExpected = readAnswer(sAnswer);
  const std::string sJson = makeJson(sAnswer);
  const simdjson::padded_string json(sJson);
  const auto ours = [&] { return timed(uExpected, [&] { return readAnswer(sAnswer); }); };
  qm_bench::compare({"answer to rows, 200,000 rows", "RapidJSON DOM, in situ", 3.0}, ours, [&] {
    std::string sCopy = sJson;
    return timed(uExpected, [&] { return readWithRapidJson(std::move(sCopy)); });
  });
  qm_bench::compare({"answer to rows, simdjson", "simdjson on demand"}, ours,
                    [&] { return timed(uExpected, [&] { return readWithSimdJson(json); }); });
  const std::string sMany = makeAnswer(kManyRows);
  const std::size_t uManyExpected = readAnswer(sMany);
  constexpr double kRatio = static_cast<double>(kManyRows) / static_cast<double>(kRows);
  qm_bench::compare(
      {"answer to rows, a million rows", "200,000 rows", 0.7, 5},
      [&] { return timed(uManyExpected, [&] { return readAnswer(sMany); }) / kRatio; }, ours);
}

/// Peak of the memory of a process of its own, which gets the line through a file.
void reportMemory(std::uint32_t uRows) {
  std::FILE* const pFile = std::tmpfile();
  const std::string sAnswer = makeAnswer(uRows);
  std::fwrite(sAnswer.data(), 1, sAnswer.size(), pFile);
  std::fflush(pFile);
  const std::string sDescriptor = std::to_string(fileno(pFile));
  const pid_t iChild = fork();
  if (iChild == 0) {
    execl("/proc/self/exe", "bench_storage", "--read", sDescriptor.c_str(), nullptr);
    _exit(1);
  }
  int iStatus = 0;
  waitpid(iChild, &iStatus, 0);
  if (iStatus != 0) {
    std::printf("the reading process failed\n");
    std::exit(1);
  }
  std::fclose(pFile);
}

/// What the process of `reportMemory` does.
int readFromDescriptor(int iDescriptor) {
  std::string sAnswer(static_cast<std::size_t>(lseek(iDescriptor, 0, SEEK_END)), '\0');
  for (std::size_t uDone = 0; uDone < sAnswer.size();) {
    const ssize_t read =
        pread(iDescriptor, sAnswer.data() + uDone, sAnswer.size() - uDone, static_cast<off_t>(uDone));
    if (read <= 0) {
      return 1;
    }
    uDone += static_cast<std::size_t>(read);
  }
  readAnswer(sAnswer);
  // The peak of this program alone; the one of `getrusage` counts the process that it was made from.
  std::ifstream status("/proc/self/status");
  double dPeak = 0.0;
  for (std::string sLine; std::getline(status, sLine);) {
    if (sLine.starts_with("VmHWM:")) {
      dPeak = std::strtod(sLine.c_str() + sLine.find_first_of("0123456789"), nullptr) * 1024.0;
    }
  }
  qm_bench::report("memory of an answer, " + std::to_string(sAnswer.size() / 1'000'000) + " MB",
                   dPeak / static_cast<double>(sAnswer.size()), "bytes a byte of the line", 4.0);
  return dPeak > 0.0 ? 0 : 1;
}

using IntervalSet =
    boost::icl::interval_set<std::uint64_t, std::less, boost::icl::closed_interval<std::uint64_t, std::less>>;

TimeSpanList makeSpans(unsigned uSeed) {
  std::mt19937_64 random(uSeed);
  TimeSpanList list;
  std::uint64_t uStart = 12'943'612'800'000'000;
  for (std::size_t i = 0; i < kSpans; ++i) {
    uStart += 2 + random() % 300'000'000;
    const std::uint64_t uEnd = uStart + random() % 300'000'000;
    list.emplace_back(JTime::fromMicroseconds(uStart), JTime::fromMicroseconds(uEnd));
    uStart = uEnd;
  }
  return list;
}

IntervalSet toIntervals(const TimeSpanList& list) {
  IntervalSet set;
  for (const TimeSpan& span : list) {
    set.insert(set.end(),
               IntervalSet::interval_type(span.startDate.getMicroseconds(), span.endDate.getMicroseconds()));
  }
  return set;
}

/// Seconds of making something, the time in which it goes left out.
template <class Make>
double makeSeconds(Make make) {
  std::optional<decltype(make())> result;
  const double dSeconds = qm_bench::seconds([&] { result.emplace(make()); });
  qm_bench::keep(*result);
  return dSeconds;
}

void compareSpans() {
  const TimeSpanList a = makeSpans(1);
  const TimeSpanList b = makeSpans(2);
  const IntervalSet peerA = toIntervals(a);
  const IntervalSet peerB = toIntervals(b);
  const auto merge = [&] {
    std::vector<TimeSpan> merged;
    merged.reserve(a.size() + b.size());
    std::merge(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(merged),
               [](const TimeSpan& left, const TimeSpan& right) { return left.startDate < right.startDate; });
    return merged;
  };
  const auto row = [&](const std::string& sName, auto ours, auto peer) {
    const auto oursSeconds = [&] { return makeSeconds([&] { return ours(a, b); }); };
    qm_bench::compare({sName, "Boost.ICL", 15.0, 5}, oursSeconds,
                      [&] { return makeSeconds([&] { return IntervalSet(peer(peerA, peerB)); }); });
    qm_bench::compare({sName + ", merging", "std::merge", 0.3}, oursSeconds,
                      [&] { return makeSeconds(merge); });
  };
  row("unite", TimeSpanList::unite, [](const auto& left, const auto& right) { return left + right; });
  row("intersect", TimeSpanList::intersect, [](const auto& left, const auto& right) { return left & right; });
  row("subtract", TimeSpanList::subtract, [](const auto& left, const auto& right) { return left - right; });
}

double globSeconds(std::size_t uSize) {
  std::string sPattern;
  for (std::size_t i = 0; i < uSize; ++i) {
    sPattern += i % 64 == 0 ? "*" : "a";
  }
  const std::string sText(uSize * 4, 'a');
  return qm_bench::seconds([&] { qm_bench::keep(qm_utils::matchesGlob(sPattern + "*ab", sText)); });
}

void reportGlob() {
  globSeconds(4000);
  std::vector<double> growths;
  for (int i = 0; i < 9; ++i) {
    growths.push_back(globSeconds(8000) / globSeconds(4000));
  }
  std::sort(growths.begin(), growths.end());
  qm_bench::report("glob, both doubled", growths[growths.size() / 2], "times the time", 4.5);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "--read") {
    return readFromDescriptor(std::atoi(argv[2]));
  }
  compareAnswers();
  reportMemory(kRows);
  reportMemory(kManyRows);
  compareSpans();
  reportGlob();
  return 0;
}
