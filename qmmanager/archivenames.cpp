#include "qmmanager/archivenames.h"

#include <charconv>
#include <system_error>

#include "coreapi/qmutils/error/jerror.h"

namespace qm_manager {

namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";

bool isPlain(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

void appendCoded(std::string& sText, char c) {
  const auto byte = static_cast<unsigned char>(c);
  sText += '%';
  sText += kHexDigits[byte >> 4];
  sText += kHexDigits[byte & 0x0F];
}

bool isReserved(std::string_view sName) noexcept {
  return sName == kMarkerName || sName == kQuarantineName;
}

std::string encode(std::string_view sSource) {
  std::string sName;
  for (const char c : sSource) {
    if (isPlain(c) && !(sName.empty() && isReserved(sSource))) {
      sName += c;
    } else {
      appendCoded(sName, c);
    }
  }
  return sName;
}

}  // namespace

std::string encodeSourceName(std::string_view sSource) {
  if (sSource.empty()) {
    QM_THROW(JTextError, "a source needs a name");
  }
  if (sSource.size() > kMaxDirectoryName) {
    QM_THROW(JTextError, "the source's name is too long");
  }
  std::string sName = encode(sSource);
  if (sName.size() > kMaxDirectoryName) {
    QM_THROW(JTextError, "the source's name is too long");
  }
  return sName;
}

bool decodeSourceName(std::string_view sDirectory, std::string& sSource) {
  std::string sDecoded;
  for (std::size_t i = 0; i < sDirectory.size(); ++i) {
    if (sDirectory[i] != '%') {
      sDecoded += sDirectory[i];
      continue;
    }
    if (sDirectory.size() - i < 3) {
      return false;
    }
    const std::size_t uHigh = kHexDigits.find(sDirectory[i + 1]);
    const std::size_t uLow = kHexDigits.find(sDirectory[i + 2]);
    if (uHigh == std::string_view::npos || uLow == std::string_view::npos) {
      return false;
    }
    sDecoded += static_cast<char>(uHigh << 4 | uLow);
    i += 2;
  }
  if (sDecoded.empty() || encode(sDecoded) != sDirectory) {
    return false;
  }
  sSource = std::move(sDecoded);
  return true;
}

bool decodeFps(std::string_view sDirectory, std::int32_t& iFps) {
  std::int32_t iValue = 0;
  const auto [pEnd, error] =
      std::from_chars(sDirectory.data(), sDirectory.data() + sDirectory.size(), iValue);
  if (error != std::errc() || std::to_string(iValue) != sDirectory || iValue < 0) {
    return false;
  }
  iFps = iValue;
  return true;
}

std::string unitDirectory(const std::string& sRoot, std::string_view sSource, std::int32_t iFps) {
  if (iFps < 0) {
    QM_THROW(JTextError, "a frame rate can't be below 0");
  }
  return sRoot + "/" + encodeSourceName(sSource) + "/" + std::to_string(iFps);
}

}  // namespace qm_manager
