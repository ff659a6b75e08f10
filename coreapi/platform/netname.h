#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "coreapi/platform/socketerror.h"

/// Names and addresses of hosts and interfaces, IPv4. Addresses are in network byte order, as they stand in
/// memory. Any thread.
namespace qm_platform {

/// One interface with an IPv4 address. `uFlags` in the numbers of the interface lists of Windows Sockets: 1
/// up, 2 broadcast, 4 loopback, 8 point to point, 16 multicast.
struct NetworkInterface {
  std::uint32_t uFlags;
  std::uint32_t uAddress;
  std::uint32_t uBroadcast;
  std::uint32_t uNetmask;
};

/// Reads a dotted address, in the forms that `inet_aton` knows, without a look-up. False when it is none.
bool parseAddress(const std::string& text, std::uint32_t& uAddress) noexcept;

/// "A.B.C.D".
std::string addressText(std::uint32_t uAddress);

/// Looks a host name up; the first address that the resolver gives. May take as long as the resolver does.
SocketError resolveHost(const std::string& host, std::uint32_t& uAddress) noexcept;

/// The name of an address, by a reverse look-up; an error when it has none.
SocketError resolveAddress(std::uint32_t uAddress, std::string& name);

/// The interfaces of this machine that have an IPv4 address, in the system's order.
SocketError listInterfaces(std::vector<NetworkInterface>& interfaces);

/// The name of this machine; empty when it can't be read.
std::string computerName();

}  // namespace qm_platform
