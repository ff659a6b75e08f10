#pragma once

#include <cstdarg>
#include <cstddef>

/// Numbers are printed and scanned in the "C" locale, whatever the host has set: a decimal point is a point.
namespace qm_platform {

/// Puts the calling thread into the "C" locale for its lifetime. Costs no system call. Other threads, and the
/// process-wide locale, are untouched.
class ScopedCLocale {
 public:
  ScopedCLocale() noexcept;
  ~ScopedCLocale();
  ScopedCLocale(const ScopedCLocale&) = delete;
  ScopedCLocale& operator=(const ScopedCLocale&) = delete;

 private:
  void* m_pPrevious;
};

/// `vsnprintf` in the "C" locale: writes at most `size` bytes, the NUL included, and returns the length of
/// the whole text without its NUL, or a negative number when the format can't be carried out.
[[gnu::format(printf, 3, 0)]] int printC(char* buffer, std::size_t size, const char* format,
                                         va_list arguments);

/// `vsscanf` in the "C" locale: returns the number of items assigned.
[[gnu::format(scanf, 2, 0)]] int scanC(const char* text, const char* format, va_list arguments);

/// `sscanf` in the "C" locale.
[[gnu::format(scanf, 2, 3)]] int scanC(const char* text, const char* format, ...);

/// `strtod` in the "C" locale: `*end`, unless `end` is null, is set behind the last character used.
double toDoubleC(const char* text, const char** end) noexcept;

}  // namespace qm_platform
