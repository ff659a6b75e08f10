#include "coreapi/platform/netname.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

/// The IPv4 address in a socket address; 0 when it holds none.
std::uint32_t addressIn(const sockaddr* pAddress) noexcept {
  if (pAddress == nullptr || pAddress->sa_family != AF_INET) {
    return 0;
  }
  sockaddr_in address;
  std::memcpy(&address, pAddress, sizeof address);
  return address.sin_addr.s_addr;
}

std::uint32_t toFlags(unsigned uSystem) noexcept {
  struct {
    unsigned system;
    std::uint32_t flag;
  } constexpr kFlags[] = {
      {IFF_UP, 1}, {IFF_BROADCAST, 2}, {IFF_LOOPBACK, 4}, {IFF_POINTOPOINT, 8}, {IFF_MULTICAST, 16}};
  std::uint32_t uFlags = 0;
  for (const auto& row : kFlags) {
    uFlags |= (uSystem & row.system) != 0 ? row.flag : 0;
  }
  return uFlags;
}

}  // namespace

bool parseAddress(const std::string& text, std::uint32_t& uAddress) noexcept {
  in_addr address{};
  if (::inet_aton(text.c_str(), &address) == 0) {
    return false;
  }
  uAddress = address.s_addr;
  return true;
}

std::string addressText(std::uint32_t uAddress) {
  char text[INET_ADDRSTRLEN] = {};
  const in_addr address{uAddress};
  ::inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

SocketError resolveHost(const std::string& host, std::uint32_t& uAddress) noexcept {
  if (takeFault(Seam::kSocket).kind != FaultKind::kNone) {
    return socketErrorFromResolver(EAI_FAIL);
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* pList = nullptr;
  const int iCode = ::getaddrinfo(host.c_str(), nullptr, &hints, &pList);
  if (iCode != 0) {
    return socketErrorFromResolver(iCode);
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(pList, ::freeaddrinfo);
  uAddress = addressIn(list->ai_addr);
  return 0;
}

SocketError resolveAddress(std::uint32_t uAddress, std::string& name) {
  if (takeFault(Seam::kSocket).kind != FaultKind::kNone) {
    return socketErrorFromResolver(EAI_FAIL);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = uAddress;
  char text[NI_MAXHOST] = {};
  const int iCode = ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, text,
                                  sizeof text, nullptr, 0, NI_NAMEREQD);
  if (iCode != 0) {
    return socketErrorFromResolver(iCode);
  }
  name = text;
  return 0;
}

SocketError listInterfaces(std::vector<NetworkInterface>& interfaces) {
  if (const Fault fault = takeFault(Seam::kSocket); fault.kind != FaultKind::kNone) {
    return socketErrorFromErrno(fault.error);
  }
  ifaddrs* pList = nullptr;
  if (::getifaddrs(&pList) != 0) {
    return socketErrorFromErrno(errno);
  }
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(pList, ::freeifaddrs);
  interfaces.clear();
  for (const ifaddrs* pEntry = pList; pEntry != nullptr; pEntry = pEntry->ifa_next) {
    if (pEntry->ifa_addr == nullptr || pEntry->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    const bool bBroadcast = (pEntry->ifa_flags & IFF_BROADCAST) != 0;
    interfaces.push_back({toFlags(pEntry->ifa_flags), addressIn(pEntry->ifa_addr),
                          bBroadcast ? addressIn(pEntry->ifa_broadaddr) : 0, addressIn(pEntry->ifa_netmask)});
  }
  return 0;
}

std::string computerName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) {
    return {};
  }
  return name;
}

}  // namespace qm_platform
