#include "coreapi/qmutils/text/jtext.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
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

struct FreeBytes {
  void operator()(char* pBytes) const noexcept { std::free(pBytes); }
};
using Bytes = std::unique_ptr<char, FreeBytes>;

Bytes allocate(std::size_t size, const char* szFailure) {
  Bytes bytes(qm_platform::takeFault(qm_platform::Seam::kAllocation).kind == qm_platform::FaultKind::kNone
                  ? static_cast<char*>(std::malloc(size))
                  : nullptr);
  if (!bytes) {
    QM_THROW(JTextError, "%s", szFailure);
  }
  return bytes;
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
  std::size_t size = kFirstSize;
  Bytes buffer = allocate(size, kNoFirstBuffer);
  for (;;) {
    va_list copy;
    va_copy(copy, arguments);
    const int length = qm_platform::printC(buffer.get(), size, szFormat, copy);
    va_end(copy);
    if (length >= 0 && static_cast<std::size_t>(length) < size) {
      return {buffer.get(), static_cast<std::size_t>(length)};
    }
    if (length < 0 && size >= kLastGuess) {
      QM_THROW(JTextError, "%s", kNoLargerBuffer);
    }
    size = length < 0 ? size * 2 : static_cast<std::size_t>(length) + 1;
    buffer.reset();
    buffer = allocate(size, kNoLargerBuffer);
  }
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

}  // namespace qm_utils
