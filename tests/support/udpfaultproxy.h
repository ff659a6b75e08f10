#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace qm_test {

/// What becomes of one datagram: it is passed on so many times, after so many of those that come behind it.
/// Without copies it is dropped; a rule that gives none from some datagram on is a black hole. Delays are
/// counted, not timed, so that a test knows the order in which things arrive.
struct UdpFault {
  std::size_t copies = 1;
  std::size_t behind = 0;
};

/// A UDP relay on the loopback, between a sender and the receiver under test, that harms what passes as its
/// rule says. It has a thread of its own; all operations may be called from any thread.
class UdpFaultProxy {
 public:
  /// What becomes of the datagram of a number, counted from 0. Called on the proxy's thread.
  using Rule = std::function<UdpFault(std::size_t)>;

  /// Takes datagrams on a free port and sends them to `targetPort` on the loopback.
  UdpFaultProxy(std::uint16_t targetPort, Rule rule);
  ~UdpFaultProxy();
  UdpFaultProxy(const UdpFaultProxy&) = delete;
  UdpFaultProxy& operator=(const UdpFaultProxy&) = delete;

  std::uint16_t port() const noexcept { return m_port; }

  /// Blocks until this many datagrams have come and all that is to be passed on of them has been.
  void await(std::size_t count);

 private:
  struct Held {
    std::size_t due;  ///< passed on behind the datagram of this number
    std::size_t copies;
    std::vector<char> bytes;
  };

  void run();
  void passOn(const Held& held) const;

  int m_socket = -1;
  int m_target = -1;
  std::uint16_t m_port = 0;
  Rule m_rule;
  std::vector<Held> m_held;  // touched by the proxy's thread alone
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::size_t m_count = 0;
  std::thread m_thread;
};

}  // namespace qm_test
