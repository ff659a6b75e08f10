#include "tests/support/udpfaultproxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace qm_test {

namespace {

constexpr std::size_t kLargest = 65536;

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

}  // namespace

UdpFaultProxy::UdpFaultProxy(std::uint16_t targetPort, Rule rule)
    : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_target(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_rule(std::move(rule)) {
  sockaddr_in address = loopback(0);
  const sockaddr_in target = loopback(targetPort);
  socklen_t length = sizeof address;
  if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      connect(m_target, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
    throw std::runtime_error("the UDP fault proxy could not be set up");
  }
  m_port = ntohs(address.sin_port);
  m_thread = std::thread([this] { run(); });
}

UdpFaultProxy::~UdpFaultProxy() {
  shutdown(m_socket, SHUT_RDWR);  // wakes the thread, with a read of 0 bytes from nobody
  m_thread.join();
  close(m_socket);
  close(m_target);
}

void UdpFaultProxy::await(std::size_t count) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_count >= count; });
}

void UdpFaultProxy::run() {
  std::vector<char> buffer(kLargest);
  for (std::size_t number = 0;; ++number) {
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t size =
        recvfrom(m_socket, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (size < 0 || from.sin_family != AF_INET) {
      return;
    }
    const UdpFault fault = m_rule(number);
    Held held{number + fault.behind, fault.copies, {buffer.begin(), buffer.begin() + size}};
    if (fault.behind == 0) {
      passOn(held);
    } else {
      m_held.push_back(std::move(held));
    }
    std::erase_if(m_held, [&](const Held& earlier) {
      if (earlier.due == number) {
        passOn(earlier);
      }
      return earlier.due == number;
    });
    const std::lock_guard lock(m_mutex);
    m_count = number + 1;
    m_changed.notify_all();
  }
}

void UdpFaultProxy::passOn(const Held& held) const {
  for (std::size_t i = 0; i < held.copies; ++i) {
    send(m_target, held.bytes.data(), held.bytes.size(), 0);
  }
}

}  // namespace qm_test
