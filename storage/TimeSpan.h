#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "coreapi/qmutils/time/jtime.h"

/// Two dates and all that lies between them, both included. A plain value.
///
/// On the wire: "m_startDate", "m_endDate" (counts of microseconds), both required.
class TimeSpan : public JRPCObject {
 public:
  /// All of time: from 0 to all ones.
  TimeSpan() noexcept : JRPCObject("TimeSpan") {}
  TimeSpan(JTime start, JTime end) noexcept : JRPCObject("TimeSpan"), startDate(start), endDate(end) {}

  void serialise(JRPCSerialisation& target) const override;
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  friend bool operator==(const TimeSpan& left, const TimeSpan& right) noexcept {
    return left.startDate == right.startDate && left.endDate == right.endDate;
  }

  JTime startDate;
  JTime endDate = JTime::max();
};

/// A list of spans and the algebra of such lists. Limits are in microseconds.
///
/// All but the three merges, which sort or walk what is there, expect lists that are sorted by start. Time
/// grows with the number of spans (sorting aside). One object belongs to one thread at a time.
class TimeSpanList : public std::vector<TimeSpan> {
 public:
  using std::vector<TimeSpan>::vector;

  /// By start, ascending; spans of equal start keep their order.
  void sort();

  /// What lies in either list: spans that overlap, or of which one starts where another ends, become one.
  static TimeSpanList unite(const TimeSpanList& a, const TimeSpanList& b);

  /// What lies in both lists. Spans that only touch at one instant have nothing in common.
  static TimeSpanList intersect(const TimeSpanList& a, const TimeSpanList& b);

  /// What of the first list lies outside the second one, to the microsecond.
  static TimeSpanList subtract(const TimeSpanList& a, const TimeSpanList& b);

  /// Sorts, then joins neighbours that overlap or touch, but only by so much at most: spans that overlap by
  /// more stay apart, and so do those with a gap.
  void mergeOverlap(std::uint64_t uLimit);

  /// Sorts, then joins neighbours that overlap or have a gap of so much at most.
  void mergeGap(std::uint64_t uLimit);

  /// Joins neighbours of which the second one starts at the very instant where the first one ends. Doesn't
  /// sort.
  void joinTouching();

  /// Writes the spans to standard output: on one line as counts, or one line each as dates.
  void dump() const;
  void dumpDates() const;

 private:
  template <class Takes>
  void join(Takes takes);
};
