#include "storage/TimeSpan.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/RpcDate.h"

namespace {

bool startsBefore(const TimeSpan& left, const TimeSpan& right) noexcept {
  return left.startDate < right.startDate;
}

/// What of one span lies outside the spans from `b` on, which is appended. `b` is moved to the first of them
/// that may reach into the next span.
void appendRest(TimeSpanList& result, const TimeSpan& span, TimeSpanList::const_iterator& b,
                TimeSpanList::const_iterator bEnd) {
  JTime start = span.startDate;
  while (b != bEnd && b->startDate <= span.endDate) {
    QM_ASSERT_AS(start <= span.endDate && b->startDate <= b->endDate, "jtAStart<=jtAEnd && jtBStart<=jtBEnd");
    if (b->endDate < start) {
      ++b;
      continue;
    }
    if (start < b->startDate) {
      result.emplace_back(start, JTime(b->startDate).subtract(1));
    }
    if (b->endDate >= span.endDate) {
      return;
    }
    start = JTime(b->endDate).add(1);
    ++b;
  }
  result.emplace_back(start, span.endDate);
}

}  // namespace

void TimeSpan::serialise(JRPCSerialisation& target) const {
  qm_storage::serialiseDate(target, "m_startDate", startDate);
  qm_storage::serialiseDate(target, "m_endDate", endDate);
}

void TimeSpan::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  qm_storage::deserialiseDate(source, "m_startDate", startDate);
  qm_storage::deserialiseDate(source, "m_endDate", endDate);
}

void TimeSpanList::sort() {
  if (!std::is_sorted(begin(), end(), startsBefore)) {
    std::stable_sort(begin(), end(), startsBefore);
  }
}

TimeSpanList TimeSpanList::unite(const TimeSpanList& a, const TimeSpanList& b) {
  TimeSpanList result;
  result.reserve(a.size() + b.size());
  const auto take = [&result](const TimeSpan& next) {
    if (!result.empty() && next.startDate <= result.back().endDate) {
      result.back().endDate = std::max(result.back().endDate, next.endDate);
    } else {
      result.push_back(next);
    }
  };
  auto left = a.begin();
  auto right = b.begin();
  while (left != a.end() && right != b.end()) {
    take(right->startDate < left->startDate ? *right++ : *left++);
  }
  std::for_each(left, a.end(), take);
  std::for_each(right, b.end(), take);
  return result;
}

TimeSpanList TimeSpanList::intersect(const TimeSpanList& a, const TimeSpanList& b) {
  TimeSpanList result;
  result.reserve(a.size() + b.size());
  auto left = a.begin();
  auto right = b.begin();
  while (left != a.end() && right != b.end()) {
    if (left->startDate < right->endDate && right->startDate < left->endDate) {
      const JTime leftEnd = left->endDate;
      const JTime rightEnd = right->endDate;
      result.emplace_back(std::max(left->startDate, right->startDate), std::min(leftEnd, rightEnd));
      left += leftEnd <= rightEnd ? 1 : 0;
      right += rightEnd <= leftEnd ? 1 : 0;
    } else if (left->startDate < right->startDate) {
      ++left;
    } else {
      ++right;
    }
  }
  return result;
}

TimeSpanList TimeSpanList::subtract(const TimeSpanList& a, const TimeSpanList& b) {
  TimeSpanList result;
  result.reserve(a.size() + b.size());
  auto right = b.begin();
  for (const TimeSpan& span : a) {
    appendRest(result, span, right, b.end());
  }
  return result;
}

/// Walks the spans with a current one, into which the next one is taken as `takes` says.
template <class Takes>
void TimeSpanList::join(Takes takes) {
  if (empty()) {
    return;
  }
  auto current = begin();
  for (auto next = begin() + 1; next != end(); ++next) {
    if (takes(*current, *next)) {
      current->endDate = std::max(current->endDate, next->endDate);
    } else {
      *++current = *next;
    }
  }
  erase(current + 1, end());
}

void TimeSpanList::mergeOverlap(std::uint64_t uLimit) {
  sort();
  join([uLimit](const TimeSpan& current, const TimeSpan& next) {
    return next.startDate <= current.endDate && current.endDate.wrappingDifference(next.startDate) <= uLimit;
  });
}

void TimeSpanList::mergeGap(std::uint64_t uLimit) {
  sort();
  join([uLimit](const TimeSpan& current, const TimeSpan& next) {
    return next.startDate <= current.endDate || next.startDate.wrappingDifference(current.endDate) <= uLimit;
  });
}

void TimeSpanList::joinTouching() {
  join([](const TimeSpan& current, const TimeSpan& next) { return next.startDate == current.endDate; });
}

void TimeSpanList::dump() const {
  for (const TimeSpan& span : *this) {
    std::printf("%" PRIu64 "-%" PRIu64 " ", span.startDate.getMicroseconds(), span.endDate.getMicroseconds());
  }
  std::printf("\n");
}

void TimeSpanList::dumpDates() const {
  for (const TimeSpan& span : *this) {
    std::printf("%s - %s\n", span.startDate.toUSFormat().c_str(), span.endDate.toUSFormat().c_str());
  }
}
