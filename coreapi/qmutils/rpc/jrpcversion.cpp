#include "coreapi/qmutils/rpc/jrpcversion.h"

#include <charconv>

namespace {

bool readNumber(std::string_view sText, std::int32_t& iValue) {
  const std::size_t start = sText.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string_view::npos) {
    return false;
  }
  sText.remove_prefix(start + (sText[start] == '+' ? 1 : 0));
  return std::from_chars(sText.data(), sText.data() + sText.size(), iValue).ec == std::errc();
}

}  // namespace

std::string JRPCVersion::toText() const {
  return std::to_string(major) + "." + std::to_string(minor);
}

bool JRPCVersion::fromText(std::string_view sText) {
  JRPCVersion version;
  const std::size_t dot = sText.find('.');
  const bool bRead = dot != std::string_view::npos && sText.find('.', dot + 1) == std::string_view::npos &&
                     readNumber(sText.substr(0, dot), version.major) &&
                     readNumber(sText.substr(dot + 1), version.minor);
  *this = bRead ? version : JRPCVersion{};
  return bRead;
}
