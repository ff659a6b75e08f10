#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "storage/TimeSpan.h"
#include "tests/storage/wiretext.h"

namespace {

using qm_test::span;
using qm_test::spansText;

using Pairs = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
constexpr std::uint64_t kEnd = ~std::uint64_t{0};

TimeSpanList listOf(const Pairs& pairs) {
  TimeSpanList list;
  for (const auto& [start, end] : pairs) {
    list.push_back(span(start, end));
  }
  return list;
}

TEST(TimeSpans, AreUnitedIntersectedAndSubtracted) {
  struct Row {
    std::string name;
    TimeSpanList (*operation)(const TimeSpanList&, const TimeSpanList&);
    Pairs a;
    Pairs b;
    std::string result;
  };
  const Row rows[] = {
      {"touching ends unite", TimeSpanList::unite, {{0, 10}}, {{10, 20}}, "0-20"},
      {"neighbours stay apart", TimeSpanList::unite, {{0, 10}}, {{11, 20}}, "0-10 11-20"},
      {"one inside the other", TimeSpanList::unite, {{0, 30}, {31, 32}}, {{5, 20}}, "0-30 31-32"},
      {"a chain",
       TimeSpanList::unite,
       {{0, 5}, {8, 12}},
       {{4, 8}, {20, kEnd}},
       "0-12 20-18446744073709551615"},
      {"nothing", TimeSpanList::unite, {}, {}, ""},
      {"a touch is no overlap", TimeSpanList::intersect, {{0, 10}}, {{10, 20}}, ""},
      {"an overlap", TimeSpanList::intersect, {{0, 10}}, {{5, 20}}, "5-10"},
      {"one over several",
       TimeSpanList::intersect,
       {{0, 100}},
       {{1, 2}, {4, 6}, {90, 200}},
       "1-2 4-6 90-100"},
      {"equal ends", TimeSpanList::intersect, {{0, 10}, {20, 30}}, {{5, 10}, {20, 30}}, "5-10 20-30"},
      {"from the middle", TimeSpanList::subtract, {{0, 10}}, {{3, 5}}, "0-2 6-10"},
      {"all", TimeSpanList::subtract, {{0, 10}}, {{0, 10}}, ""},
      {"nothing taken", TimeSpanList::subtract, {{0, 10}}, {}, "0-10"},
      {"one over several spans", TimeSpanList::subtract, {{0, 4}, {6, 9}, {12, 20}}, {{3, 14}}, "0-2 15-20"},
      {"several from one",
       TimeSpanList::subtract,
       {{5, 50}},
       {{0, 1}, {2, 5}, {10, 10}, {49, 60}},
       "6-9 11-48"},
      {"to the end of time", TimeSpanList::subtract, {{0, kEnd}}, {{10, kEnd}}, "0-9"},
      {"of all time", TimeSpanList::subtract, {{0, kEnd}, {5, kEnd}}, {{0, kEnd}}, ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(spansText(row.operation(listOf(row.a), listOf(row.b))), row.result) << row.name;
  }
}

TEST(TimeSpans, MergeByTheirLimits) {
  struct Row {
    std::string name;
    void (*merge)(TimeSpanList&);
    Pairs spans;
    std::string result;
  };
  const auto gap = [](TimeSpanList& list) { list.mergeGap(1); };
  const auto overlap = [](TimeSpanList& list) { list.mergeOverlap(1); };
  const auto touching = [](TimeSpanList& list) { list.joinTouching(); };
  const Row rows[] = {
      {"gap of the limit", gap, {{11, 20}, {0, 10}}, "0-20"},
      {"gap beyond the limit", gap, {{0, 10}, {12, 20}}, "0-10 12-20"},
      {"gap, inside", gap, {{0, 30}, {5, 6}, {31, 32}}, "0-32"},
      {"gap to the end of time", gap, {{0, kEnd}, {7, 9}}, "0-18446744073709551615"},
      {"overlap has no gap", overlap, {{0, 10}, {11, 20}}, "0-10 11-20"},
      {"overlap by a touch", overlap, {{10, 20}, {0, 10}}, "0-20"},
      {"overlap beyond the limit", overlap, {{0, 10}, {5, 20}}, "0-10 5-20"},
      {"touch", touching, {{0, 10}, {10, 20}, {20, 25}}, "0-25"},
      {"touch isn't a neighbour", touching, {{0, 10}, {11, 20}}, "0-10 11-20"},
      {"touch doesn't sort", touching, {{10, 20}, {0, 10}}, "10-20 0-10"},
      {"nothing", touching, {}, ""},
  };
  for (const Row& row : rows) {
    TimeSpanList list = listOf(row.spans);
    row.merge(list);
    EXPECT_EQ(spansText(list), row.result) << row.name;
  }
}

// Against the plainest model there is: the set of the instants.
TEST(TimeSpans, CoverTheSameInstantsAsSets) {
  std::mt19937 random(7);
  const auto makeList = [&random] {
    TimeSpanList list;
    for (std::uint64_t uStart = random() % 4; uStart < 60; uStart += 1 + random() % 5) {
      list.push_back(span(uStart, uStart + random() % 7));
      uStart = list.back().endDate.getMicroseconds() + 1;
    }
    return list;
  };
  const auto instants = [](const TimeSpanList& list) {
    std::set<std::uint64_t> set;
    for (const TimeSpan& each : list) {
      for (std::uint64_t u = each.startDate.getMicroseconds(); u <= each.endDate.getMicroseconds(); ++u) {
        set.insert(u);
      }
    }
    return set;
  };
  for (int i = 0; i < 500; ++i) {
    const TimeSpanList a = makeList();
    const TimeSpanList b = makeList();
    std::set<std::uint64_t> united = instants(a);
    united.merge(instants(b));
    std::set<std::uint64_t> rest = instants(a);
    for (const std::uint64_t u : instants(b)) {
      rest.erase(u);
    }
    EXPECT_EQ(instants(TimeSpanList::unite(a, b)), united) << spansText(a) << " and " << spansText(b);
    EXPECT_EQ(instants(TimeSpanList::subtract(a, b)), rest) << spansText(a) << " less " << spansText(b);
  }
}

}  // namespace
