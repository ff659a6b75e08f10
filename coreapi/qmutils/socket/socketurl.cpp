#include <limits>
#include <optional>
#include <string_view>

#include "coreapi/platform/clocale.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jsockaddr.h"

namespace {

constexpr char kBadFormat[] = "bad ip url format";

/// The longest text behind a scheme.
constexpr std::size_t kMaxRest = 255;

constexpr std::uint16_t kRtspPort = 554;

/// What stands behind a scheme, if the URL has it.
std::optional<std::string> behind(const std::string& sURL, std::string_view scheme) {
  if (!std::string_view(sURL).starts_with(scheme)) {
    return std::nullopt;
  }
  if (sURL.size() - scheme.size() > kMaxRest) {
    QM_THROW(JTextError, kBadFormat);
  }
  return sURL.substr(scheme.size());
}

/// Reads a port as "%d" does, and refuses numbers that no port has.
std::uint16_t readPort(const std::string& sText) {
  int iPort = 0;
  if (qm_platform::scanC(sText.c_str(), "%d", &iPort) != 1 || iPort < 0 ||
      iPort > std::numeric_limits<std::uint16_t>::max()) {
    QM_THROW(JTextError, kBadFormat);
  }
  return static_cast<std::uint16_t>(iPort);
}

std::unique_ptr<JSockAddr> fromHostAndPort(const std::string& sRest) {
  const std::size_t uColon = sRest.find(':');
  if (uColon == std::string::npos) {
    QM_THROW(JTextError, kBadFormat);
  }
  const std::uint16_t uPort = readPort(sRest.substr(uColon + 1));
  return std::make_unique<JInetAddr>(sRest.substr(0, uColon), uPort);
}

std::unique_ptr<JSockAddr> fromRtsp(const std::string& sRest) {
  const std::size_t uSlash = sRest.find('/');
  if (uSlash == std::string::npos) {
    QM_THROW(JTextError, "bad rtsp url format, missing mediafile");
  }
  const std::string sHostAndPort = sRest.substr(0, uSlash);
  const std::size_t uColon = sHostAndPort.find(':');
  const std::uint16_t uPort =
      uColon == std::string::npos ? kRtspPort : readPort(sHostAndPort.substr(uColon + 1));
  return std::make_unique<JRTSPAddr>(sHostAndPort.substr(0, uColon), uPort, sRest.substr(uSlash + 1));
}

}  // namespace

std::unique_ptr<JSockAddr> JSockAddr::fromURL(const std::string& sURL) {
  if (const auto sRest = behind(sURL, "udp://")) {
    return fromHostAndPort(*sRest);
  }
  if (const auto sRest = behind(sURL, "tcp://")) {
    return fromHostAndPort(*sRest);
  }
  if (sURL.starts_with("svc://")) {
    return nullptr;
  }
  if (const auto sRest = behind(sURL, "ipmq://")) {
    return std::make_unique<JInetAddr>(*sRest, std::uint16_t{0});
  }
  if (const auto sRest = behind(sURL, "rtsp://")) {
    return fromRtsp(*sRest);
  }
  QM_THROW(JTextError, "unknown url type");
}
