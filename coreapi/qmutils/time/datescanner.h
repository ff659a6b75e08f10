#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

namespace qm_utils {

/// Reads the numbers of a date text one after the other, as `scanf` reads them, but for numbers beyond 32
/// bits, which are the nearest one inside them. The first thing that isn't there ends the reading: every
/// later call leaves its argument alone.
///
///     DateScanner scanner("12:30");
///     bool bWhole = scanner.number(iHour).literal(':').number(iMinute).ok();
class DateScanner {
 public:
  /// Reads a text ended by a NUL, which must outlive the scanner.
  explicit DateScanner(const char* szText) noexcept : m_pAt(szText) {}

  /// A number in decimal with an optional sign, white space before it skipped.
  DateScanner& number(int& iNumber) noexcept {
    blanks();
    const bool bNegative = *m_pAt == '-';
    const char* pDigits = m_pAt + (bNegative || *m_pAt == '+' ? 1 : 0);
    m_bOk = m_bOk && isDigit(*pDigits);
    if (m_bOk) {
      constexpr std::int64_t kBeyond = std::numeric_limits<std::uint32_t>::max();
      std::int64_t iValue = 0;
      for (m_pAt = pDigits; isDigit(*m_pAt); ++m_pAt) {
        iValue = std::min(iValue * 10 + (*m_pAt - '0'), kBeyond);
      }
      iNumber = static_cast<int>(std::clamp<std::int64_t>(
          bNegative ? -iValue : iValue, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    }
    return *this;
  }

  /// This character, here.
  DateScanner& literal(char c) noexcept {
    m_bOk = m_bOk && *m_pAt == c;
    m_pAt += m_bOk ? 1 : 0;
    return *this;
  }

  /// White space of any length, none too.
  DateScanner& blanks() noexcept {
    while (m_bOk && isWhiteSpace(*m_pAt)) {
      ++m_pAt;
    }
    return *this;
  }

  /// Characters up to the next white space, at least one; white space before them is skipped.
  DateScanner& word(std::string& sWord) {
    blanks();
    const char* pStart = m_pAt;
    while (m_bOk && *m_pAt != '\0' && !isWhiteSpace(*m_pAt)) {
      ++m_pAt;
    }
    m_bOk = m_bOk && m_pAt != pStart;
    if (m_bOk) {
      sWord.assign(pStart, m_pAt);
    }
    return *this;
  }

  /// Whether everything so far was there.
  bool ok() const noexcept { return m_bOk; }

 private:
  static bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
  static bool isWhiteSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

  const char* m_pAt;
  bool m_bOk = true;
};

}  // namespace qm_utils
