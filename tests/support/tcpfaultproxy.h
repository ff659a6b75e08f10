#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace qm_test {

/// What the proxy does to the bytes of one direction.
struct FaultRule {
  enum class Action {
    kClose,      ///< orderly end towards both sides
    kReset,      ///< both connections are reset
    kBlackHole,  ///< the connection stays open; what comes from then on in this direction is swallowed
  };

  /// Bytes that pass unharmed before the action; the action is taken as soon as so many have been passed on.
  std::uint64_t afterBytes = std::numeric_limits<std::uint64_t>::max();
  Action action = Action::kClose;
  /// At most so many bytes are passed on at once; 1 drips.
  std::size_t chunk = 65536;
  /// Pause before each chunk.
  std::chrono::milliseconds delay{0};
};

/// A TCP relay on the loopback, between a client and the server under test, that harms what passes as its
/// rules say. It has a thread of its own; all operations may be called from any thread.
class TcpFaultProxy {
 public:
  /// Listens on a free port and connects each client to `targetPort` on the loopback.
  explicit TcpFaultProxy(std::uint16_t targetPort);
  ~TcpFaultProxy();
  TcpFaultProxy(const TcpFaultProxy&) = delete;
  TcpFaultProxy& operator=(const TcpFaultProxy&) = delete;

  std::uint16_t port() const noexcept { return m_port; }

  /// Rules for connections that are accepted from now on.
  void setRules(const FaultRule& toServer, const FaultRule& toClient);

  /// Resets every connection that is open now.
  void resetAll();

  /// Connections accepted so far.
  std::size_t accepted() const noexcept { return m_accepted; }

 private:
  struct Flow;
  struct Pair;

  void run();
  void acceptOne();
  void applyRule(Pair& pair, Flow& flow);
  void pump(Pair& pair, Flow& flow);
  void wake() const;

  int m_listener = -1;
  int m_wakeRead = -1;
  int m_wakeWrite = -1;
  std::uint16_t m_port = 0;
  std::uint16_t m_targetPort;
  std::atomic<std::size_t> m_accepted{0};
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_resetAll{false};
  std::mutex m_rulesMutex;
  FaultRule m_toServer;
  FaultRule m_toClient;
  std::vector<std::unique_ptr<Pair>> m_pairs;  // touched by the proxy's thread alone
  std::thread m_thread;
};

}  // namespace qm_test
