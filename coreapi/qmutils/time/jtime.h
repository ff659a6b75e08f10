#pragma once

#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

/// A point in time, or an interval: an unsigned 64-bit count of microseconds. As a point its zero is the
/// start of the year 1601, UTC. A plain value without shared state; any thread.
///
/// All ones stands for an open end. Arithmetic saturates: it ends at 0 and at all ones, and never wraps.
class JTime {
 public:
  static constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

  /// The count at 1970-01-01 00:00:00 UTC.
  static constexpr std::uint64_t kEpochOffset = 0x295E9648864000;

  /// The counts that 32-bit seconds since 1970 reach: 1901-12-13 20:45:52 UTC and 2038-01-19 03:14:07.999999
  /// UTC.
  static constexpr std::uint64_t kLowestConvertible = 0x21BD7648864000;
  static constexpr std::uint64_t kHighestConvertible = 0x30FFB648863FFF;

  /// The counts between which a date text of a host may lie, both included.
  static constexpr std::uint64_t kValidLow = kEpochOffset;
  static constexpr std::uint64_t kValidHigh = kHighestConvertible;

  /// 2004-12-31 23:59:59.999999 UTC: a system clock at or below it counts as not set.
  static constexpr std::uint64_t kClockSetLimit = 0x2D4B287BD03FFF;

  /// 0.
  constexpr JTime() noexcept = default;

  /// An interval; it isn't shifted by the epoch.
  constexpr JTime(std::uint64_t uSeconds, std::uint64_t uMicroseconds) noexcept
      : m_uMicroseconds(saturatingSum(saturatingProduct(uSeconds, kMicrosecondsPerSecond), uMicroseconds)) {}

  /// An interval. A negative one is 0.
  constexpr explicit JTime(std::chrono::milliseconds interval) noexcept
      : m_uMicroseconds(interval.count() <= 0
                            ? 0
                            : saturatingProduct(static_cast<std::uint64_t>(interval.count()), 1000)) {}

  /// The value that a count stands for.
  static constexpr JTime fromMicroseconds(std::uint64_t uMicroseconds) noexcept {
    JTime time;
    time.m_uMicroseconds = uMicroseconds;
    return time;
  }

  /// 0, the open start of a span.
  static constexpr JTime zero() noexcept { return {}; }

  /// All ones, the open end of a span.
  static constexpr JTime max() noexcept {
    return fromMicroseconds(std::numeric_limits<std::uint64_t>::max());
  }

  /// 01/01/1970 00:00:00.000000UTC, the first time that a query asks for when its start is open.
  static constexpr JTime firstQueryTime() noexcept { return fromMicroseconds(kValidLow); }

  /// 01/19/2038 03:14:07.551615UTC, the last time that a query asks for when its end is open.
  static constexpr JTime lastQueryTime() noexcept { return fromMicroseconds(kValidHigh - 999'999 + 551'615); }

  /// The system's UTC clock.
  static JTime now() noexcept;

  /// Whether the system's clock is above `kClockSetLimit`.
  static bool isClockSet() noexcept;

  /// From whole seconds since 1970. Saturates.
  static constexpr JTime fromUnixSeconds(std::int64_t iSeconds) noexcept {
    if (iSeconds < -kEpochSeconds) {
      return {};
    }
    return {static_cast<std::uint64_t>(iSeconds) + static_cast<std::uint64_t>(kEpochSeconds), 0};
  }

  /// Whole seconds since 1970, rounded toward minus infinity, of this value moved into the convertible range:
  /// -2147483648 to 2147483647. `pMicroseconds`, unless null, takes what the moved value holds below its
  /// second.
  std::int64_t toUnixSeconds(std::uint32_t* pMicroseconds = nullptr) const noexcept;

  constexpr std::uint64_t getMicroseconds() const noexcept { return m_uMicroseconds; }

  /// Moves by a count of microseconds of either sign. Saturates.
  JTime& add(std::int64_t iMicroseconds) noexcept;
  JTime& subtract(std::int64_t iMicroseconds) noexcept;

  /// This value minus another as an unsigned 64-bit number that wraps: an other value that is later gives a
  /// very large count. For checks that want "later" and "too far" to fail alike; everything else subtracts
  /// with saturation.
  constexpr std::uint64_t wrappingDifference(JTime other) const noexcept {
    return m_uMicroseconds - other.m_uMicroseconds;
  }

  /// To the lowest multiple of an interval at or above this value, or to all ones when there is none. An
  /// interval of 0 changes nothing, here and in the next three.
  JTime& roundUp(JTime interval) noexcept;

  /// To the highest multiple at or below this value.
  JTime& roundDown(JTime interval) noexcept;

  /// To the lowest multiple strictly above this value, or to all ones when there is none.
  JTime& nextMultiple(JTime interval) noexcept;

  /// To the highest multiple strictly below this value; 0 stays 0.
  JTime& previousMultiple(JTime interval) noexcept;

  /// Takes an interval apart. Each pointer may be null; without one for the hours, the minutes hold them.
  void split(std::uint64_t* pHours, std::uint64_t* pMinutes, std::uint64_t* pSeconds,
             std::uint64_t* pMicroseconds) const noexcept;

  /// The count in decimal: the form of files and wires, not of people.
  std::string toText() const;

  /// Reads the count from decimal text, as "%llu" does: blanks before it are skipped, what follows it is
  /// ignored, a sign is taken, and too large a number is all ones. False, and nothing changed, when there is
  /// no number or no text.
  bool fromText(const char* szText) noexcept;

  /// The calendar form in UTC that every person and host sees, such as "03/03/2011 10:00:00.000000UTC":
  /// month, day and year first. A time outside the convertible range shows the nearest second inside it, with
  /// its own microseconds: all ones reads "01/19/2038 03:14:07.551615UTC". A text inside the range that hosts
  /// may use reads back as the same time (`qm_utils::parseNtpDate`).
  std::string toUSFormat() const;

  /// Appends the same text, with no other cost than that: for results of a million rows.
  void appendUSFormat(std::string& sText) const;

  /// As `toUSFormat`, as "2011-03-03 10:00:00.000000 UTC".
  std::string toISOFormat() const;

  /// As `toUSFormat`, as "10:00:00 03/03/2011".
  std::string toShortFormat() const;

  /// The three forms into a buffer, cut to `size` bytes with the NUL. A null buffer or a size of 0 writes
  /// nothing.
  void toUSFormat(char* szBuf, std::size_t size) const;
  void toISOFormat(char* szBuf, std::size_t size) const;
  void toShortFormat(char* szBuf, std::size_t size) const;

  friend constexpr auto operator<=>(JTime, JTime) noexcept = default;

 private:
  static constexpr auto kEpochSeconds = static_cast<std::int64_t>(kEpochOffset / kMicrosecondsPerSecond);

  static constexpr std::uint64_t saturatingSum(std::uint64_t a, std::uint64_t b) noexcept {
    std::uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::uint64_t>::max() : sum;
  }
  static constexpr std::uint64_t saturatingProduct(std::uint64_t a, std::uint64_t b) noexcept {
    std::uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<std::uint64_t>::max() : product;
  }

  std::uint64_t m_uMicroseconds = 0;
};
