#include "coreapi/platform/clocale.h"

#include <cstdio>
#include <cstdlib>
#include <locale.h>

#include "coreapi/platform/plainprint.h"

namespace qm_platform {

namespace {

/// The one "C" locale object of the process. It is never freed: text is printed until the very end.
locale_t cLocale() noexcept {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

ScopedCLocale::ScopedCLocale() noexcept : m_pPrevious(uselocale(cLocale())) {}

ScopedCLocale::~ScopedCLocale() {
  uselocale(static_cast<locale_t>(m_pPrevious));
}

int printC(char* buffer, std::size_t size, const char* format, va_list arguments) {
  int length = 0;
  if (printPlain(buffer, size, format, arguments, length)) {
    return length;
  }
  const ScopedCLocale locale;
  return std::vsnprintf(buffer, size, format, arguments);
}

int scanC(const char* text, const char* format, va_list arguments) {
  const ScopedCLocale locale;
  return std::vsscanf(text, format, arguments);
}

int scanC(const char* text, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int items = scanC(text, format, arguments);
  va_end(arguments);
  return items;
}

double toDoubleC(const char* text, const char** end) noexcept {
  char* stop = nullptr;
  const double value = strtod_l(text, &stop, cLocale());
  if (end != nullptr) {
    *end = stop;
  }
  return value;
}

}  // namespace qm_platform
