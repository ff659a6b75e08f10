#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "storage/Slice.h"

/// The index of an archive directory: its slices in the order of time. No two of them overlap; the end of one
/// may be the start of the next.
///
/// Looking up takes the logarithm of the number of slices, and opens no file. One thread at a time.
class SliceMap {
 public:
  /// How a slice is found when none holds a span.
  enum Mode : int {
    kExact = 0,     ///< not at all
    kNext = 1,      ///< the next one behind the span
    kPrevious = 2,  ///< the last one before it
  };

  /// Whether two spans can't stand in the index side by side. Those that only touch in an instant can, unless
  /// they are nothing but that instant.
  static bool overlap(const TimeSpan& left, const TimeSpan& right) noexcept {
    return left == right || (left.startDate < right.endDate && right.startDate < left.endDate);
  }

  /// By start, then by end.
  struct ByTime {
    bool operator()(const TimeSpan& left, const TimeSpan& right) const noexcept {
      return left.startDate != right.startDate ? left.startDate < right.startDate
                                               : left.endDate < right.endDate;
    }
  };

  using Map = std::map<TimeSpan, std::unique_ptr<Slice>, ByTime>;
  using Position = Map::const_iterator;

  /// Puts a slice into the index. Where it overlaps others:
  ///
  ///     the other lies inside it, or is the same    the other leaves the index
  ///     it lies inside the other                    it isn't taken
  ///     they overlap in part                        the one that begins first ends, in the index, a
  ///                                                 microsecond before the other begins
  ///
  /// so that nothing that was recorded once goes out of sight. What is left out is logged; its file stays.
  /// Returns whether the slice was taken.
  bool add(std::unique_ptr<Slice> pSlice);

  /// Takes a slice out; whether there was one of just this span.
  bool remove(const TimeSpan& span);

  /// The slice of just this span; the end when there is none.
  Position at(const TimeSpan& span) const { return m_slices.find(span); }

  /// The slice of just this span, else the first one that has an instant of it (the later one of two that
  /// share its first instant), else what the mode says; the end when there is none.
  Position find(const TimeSpan& span, int iMode) const;

  /// The first slice that ends at or behind a date.
  Position firstFrom(JTime date) const;

  Position begin() const noexcept { return m_slices.begin(); }
  Position end() const noexcept { return m_slices.end(); }
  bool isEmpty() const noexcept { return m_slices.empty(); }
  std::size_t size() const noexcept { return m_slices.size(); }

  /// Sum of the slices' sizes, bytes.
  std::uint64_t getUsedSpace() const noexcept { return m_uUsedSpace; }

 private:
  void insert(std::unique_ptr<Slice> pSlice);
  std::unique_ptr<Slice> take(Position position);

  Map m_slices;
  std::uint64_t m_uUsedSpace = 0;
};
