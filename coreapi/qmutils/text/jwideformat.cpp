#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string_view>
#include <sys/types.h>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/text/jutf8codec.h"

namespace qm_utils {

namespace {

/// What stands between the percent sign and the letter of a conversion, such as "-08.3hh" in "%-08.3hhd".
struct Conversion {
  std::string sFlags;
  int iWidth = 0;
  int iPrecision = -1;  ///< negative for none
  std::string sLength;
  char cKind = '\0';

  bool isLeft() const { return sFlags.find('-') != std::string::npos; }
  bool isShort() const { return !sLength.empty() && sLength.front() == 'h'; }

  /// The conversion as `printf` takes it, for an argument of another length.
  std::string toFormat(const char* szLength) const {
    std::string sFormat(1, '%');
    sFormat += sFlags;
    if (iWidth > 0) {
      sFormat += std::to_string(iWidth);
    }
    if (iPrecision >= 0) {
      sFormat += '.';
      sFormat += std::to_string(iPrecision);
    }
    sFormat += szLength;
    sFormat += cKind;
    return sFormat;
  }
};

/// Prints one number by a format that was put together here.
std::string printOne(const char* szFormat, ...) {
  va_list arguments;
  va_start(arguments, szFormat);
  try {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::string sText = vformat(szFormat, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    return sText;
  } catch (...) {
    va_end(arguments);
    throw;
  }
}

/// Prints a 16-bit format. Nothing on the platform prints 16-bit text, so the format is taken apart here, and
/// numbers are left to `printf` one by one.
class WidePrinter {
 public:
  /// Reads from the argument list, which the caller ends.
  WidePrinter(const char16_t* szFormat, va_list* pArguments)
      : m_sRest(szFormat != nullptr ? szFormat : u""), m_pArguments(pArguments) {}

  std::u16string print() {
    while (!m_sRest.empty()) {
      const std::size_t plain = std::min(m_sRest.find(u'%'), m_sRest.size());
      m_sResult += m_sRest.substr(0, plain);
      m_sRest.remove_prefix(plain);
      if (takeOneOf("%") != '\0') {
        printConversion(readConversion());
      }
    }
    return std::move(m_sResult);
  }

 private:
  /// The next character of the format if it is one of these, and passes it; else NUL.
  char takeOneOf(std::string_view sCharacters) {
    if (m_sRest.empty() || m_sRest.front() >= 0x80 ||
        sCharacters.find(static_cast<char>(m_sRest.front())) == std::string_view::npos) {
      return '\0';
    }
    const auto c = static_cast<char>(m_sRest.front());
    m_sRest.remove_prefix(1);
    return c;
  }

  /// A number in the format, or the next argument for a star.
  int readNumber() {
    if (takeOneOf("*") != '\0') {
      return va_arg(*m_pArguments, int);
    }
    std::int64_t iNumber = 0;
    for (char c = takeOneOf("0123456789"); c != '\0'; c = takeOneOf("0123456789")) {
      iNumber = std::min<std::int64_t>(iNumber * 10 + (c - '0'), std::numeric_limits<int>::max());
    }
    return static_cast<int>(iNumber);
  }

  Conversion readConversion() {
    Conversion conversion;
    for (char c = takeOneOf("-+ #0"); c != '\0'; c = takeOneOf("-+ #0")) {
      conversion.sFlags += c;
    }
    conversion.iWidth = readNumber();
    if (conversion.iWidth < 0) {
      conversion.sFlags += '-';
      conversion.iWidth = -std::max(conversion.iWidth, -std::numeric_limits<int>::max());
    }
    if (takeOneOf(".") != '\0') {
      conversion.iPrecision = readNumber();
    }
    for (char c = takeOneOf("hljztL"); c != '\0'; c = takeOneOf("hljztL")) {
      conversion.sLength += c;
    }
    conversion.cKind = takeOneOf("%diuoxXeEfFgGaApcs");
    return conversion;
  }

  void printConversion(const Conversion& conversion) {
    switch (conversion.cKind) {
      case '%':
        m_sResult += u'%';
        break;
      case 'd':
      case 'i':
        appendAscii(printOne(conversion.toFormat("j").c_str(), signedArgument(conversion.sLength)));
        break;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        appendAscii(printOne(conversion.toFormat("j").c_str(), unsignedArgument(conversion.sLength)));
        break;
      case 'p':
        appendAscii(printOne(conversion.toFormat("").c_str(), va_arg(*m_pArguments, void*)));
        break;
      case 'c': {
        const int iCharacter = va_arg(*m_pArguments, int);
        appendPadded(conversion,
                     std::u16string(1, conversion.isShort() ? static_cast<unsigned char>(iCharacter)
                                                            : static_cast<char16_t>(iCharacter)));
        break;
      }
      case 's':
        appendPadded(conversion, stringArgument(conversion));
        break;
      case '\0':
        QM_THROW(JTextError, "Unknown conversion in the format of qm_utils::format()");
      default:
        if (conversion.sLength == "L") {
          appendAscii(printOne(conversion.toFormat("L").c_str(), va_arg(*m_pArguments, long double)));
        } else {
          appendAscii(printOne(conversion.toFormat("").c_str(), va_arg(*m_pArguments, double)));
        }
        break;
    }
  }

  std::intmax_t signedArgument(const std::string& sLength) {
    if (sLength == "l") {
      return va_arg(*m_pArguments, long);
    }
    if (sLength == "ll") {
      return va_arg(*m_pArguments, long long);
    }
    if (sLength == "j") {
      return va_arg(*m_pArguments, std::intmax_t);
    }
    if (sLength == "z") {
      return va_arg(*m_pArguments, ssize_t);
    }
    if (sLength == "t") {
      return va_arg(*m_pArguments, std::ptrdiff_t);
    }
    const int iArgument = va_arg(*m_pArguments, int);
    return sLength == "hh"  ? static_cast<signed char>(iArgument)
           : sLength == "h" ? static_cast<short>(iArgument)
                            : iArgument;
  }

  std::uintmax_t unsignedArgument(const std::string& sLength) {
    if (sLength == "l") {
      return va_arg(*m_pArguments, unsigned long);
    }
    if (sLength == "ll") {
      return va_arg(*m_pArguments, unsigned long long);
    }
    if (sLength == "j") {
      return va_arg(*m_pArguments, std::uintmax_t);
    }
    if (sLength == "z" || sLength == "t") {
      return va_arg(*m_pArguments, std::size_t);
    }
    const unsigned uArgument = va_arg(*m_pArguments, unsigned);
    return sLength == "hh"  ? static_cast<unsigned char>(uArgument)
           : sLength == "h" ? static_cast<unsigned short>(uArgument)
                            : uArgument;
  }

  /// The string to print, cut to the precision; an unended string is read no further than that.
  std::u16string stringArgument(const Conversion& conversion) {
    const std::size_t limit = conversion.iPrecision >= 0 ? static_cast<std::size_t>(conversion.iPrecision)
                                                         : std::numeric_limits<std::size_t>::max();
    std::u16string sText;
    if (conversion.isShort()) {
      const char* szUtf8 = va_arg(*m_pArguments, const char*);
      sText = JUTF8Codec::toWide(szUtf8 != nullptr ? szUtf8 : "(null)");
      sText.resize(std::min(sText.size(), limit));
      return sText;
    }
    const char16_t* szWide = va_arg(*m_pArguments, const char16_t*);
    szWide = szWide != nullptr ? szWide : u"(null)";
    while (sText.size() < limit && szWide[sText.size()] != u'\0') {
      sText += szWide[sText.size()];
    }
    return sText;
  }

  void appendAscii(const std::string& sText) { m_sResult.append(sText.begin(), sText.end()); }

  void appendPadded(const Conversion& conversion, const std::u16string& sText) {
    const std::size_t width = static_cast<std::size_t>(conversion.iWidth);
    const std::size_t padding = width - std::min(width, sText.size());
    if (conversion.isLeft()) {
      m_sResult += sText;
    }
    m_sResult.append(padding, u' ');
    if (!conversion.isLeft()) {
      m_sResult += sText;
    }
  }

  std::u16string_view m_sRest;
  va_list* m_pArguments;
  std::u16string m_sResult;
};

}  // namespace

std::u16string format(const char16_t* szFormat, ...) {
  va_list arguments;
  va_start(arguments, szFormat);
  try {
    std::u16string sText = vformat(szFormat, arguments);
    va_end(arguments);
    return sText;
  } catch (...) {
    va_end(arguments);
    throw;
  }
}

std::u16string vformat(const char16_t* szFormat, va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  try {
    std::u16string sText = WidePrinter(szFormat, &copy).print();
    va_end(copy);
    return sText;
  } catch (const std::bad_alloc&) {
    va_end(copy);
    QM_THROW(JTextError, "Cannot allocate space for qm_utils::format()");
  } catch (...) {
    va_end(copy);
    throw;
  }
}

}  // namespace qm_utils
