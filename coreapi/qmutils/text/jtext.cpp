#include "coreapi/qmutils/text/jtext.h"

#include <algorithm>
#include <new>

#include "coreapi/platform/clocale.h"
#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_utils {

namespace {

/// Bytes that are tried first; nearly every text fits.
constexpr std::size_t kFirstSize = 512;

/// The size at which a print that keeps failing without a length is given up.
constexpr std::size_t kLastGuess = std::size_t{1} << 20;

constexpr const char* kNoFirstBuffer = "Cannot allocate space for qm_utils::format()";
constexpr const char* kNoLargerBuffer = "Cannot realloc space for qm_utils::format()";

/// Does what takes memory; without any, throws `JTextError` with a text.
template <class Work>
void allocating(const char* szFailure, Work work) {
  if (qm_platform::takeFault(qm_platform::Seam::kAllocation).kind != qm_platform::FaultKind::kNone) {
    QM_THROW(JTextError, "%s", szFailure);
  }
  try {
    work();
  } catch (const std::bad_alloc&) {
    QM_THROW(JTextError, "%s", szFailure);
  }
}

/// One bounded print; the arguments stay usable for the next.
[[gnu::format(printf, 3, 0)]] int print(char* szBuf, std::size_t size, const char* szFormat,
                                        va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  const int length = qm_platform::printC(szBuf, size, szFormat, copy);
  va_end(copy);
  return length;
}

bool isWhiteSpace(char c) noexcept {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

template <class String, class Predicate>
void trimStart(String& sText, Predicate isTrimmed) {
  sText.erase(sText.begin(), std::find_if_not(sText.begin(), sText.end(), isTrimmed));
}

template <class String, class Predicate>
void trimEnd(String& sText, Predicate isTrimmed) {
  sText.erase(std::find_if_not(sText.rbegin(), sText.rend(), isTrimmed).base(), sText.end());
}

constexpr auto kIsBlank = [](auto c) { return c == ' '; };

}  // namespace

std::string format(const char* szFormat, ...) {
  va_list arguments;
  va_start(arguments, szFormat);
  try {
    std::string sText = vformat(szFormat, arguments);
    va_end(arguments);
    return sText;
  } catch (...) {
    va_end(arguments);
    throw;
  }
}

std::string vformat(const char* szFormat, va_list arguments) {
  std::string sText;
  char szFirst[kFirstSize];
  int length = print(szFirst, sizeof szFirst, szFormat, arguments);
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof szFirst) {
    allocating(kNoFirstBuffer, [&] { sText.assign(szFirst, static_cast<std::size_t>(length)); });
    return sText;
  }
  // A length says what is needed. Without one, more room may help, but not for ever.
  for (std::size_t size = kFirstSize; length < 0 || static_cast<std::size_t>(length) >= size;) {
    if (length < 0 && size >= kLastGuess) {
      QM_THROW(JTextError, "%s", kNoLargerBuffer);
    }
    size = length < 0 ? size * 2 : static_cast<std::size_t>(length) + 1;
    allocating(kNoLargerBuffer, [&] { sText.resize(size); });
    length = print(sText.data(), size, szFormat, arguments);
  }
  sText.resize(static_cast<std::size_t>(length));
  return sText;
}

void trimLeft(std::string& sText) {
  trimStart(sText, kIsBlank);
}

void trimLeft(std::u16string& sText) {
  trimStart(sText, kIsBlank);
}

void trimRight(std::string& sText) {
  trimEnd(sText, kIsBlank);
}

void trimRight(std::u16string& sText) {
  trimEnd(sText, kIsBlank);
}

void trimSpaceLeft(std::string& sText) {
  trimStart(sText, isWhiteSpace);
}

void trimSpaceRight(std::string& sText) {
  trimEnd(sText, isWhiteSpace);
}

void trimSpace(std::string& sText) {
  trimSpaceRight(sText);
  trimSpaceLeft(sText);
}

bool equalsInAnyCase(std::string_view sLeft, std::string_view sRight) noexcept {
  const auto lowered = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::equal(sLeft.begin(), sLeft.end(), sRight.begin(), sRight.end(),
                    [&](char left, char right) { return lowered(left) == lowered(right); });
}

}  // namespace qm_utils
