#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"

namespace qm_utils {

/// Takes TCP clients on a port, and writes lines to all of them. Outputs for the same interface and port
/// share one server.
///
/// A client that is gone is dropped, and so is one that doesn't take a line within `kWriteTimeout`, which all
/// clients share: many that don't read hold the log up no longer than one. What clients send is read and
/// thrown away. Further ones than `kMaxClients` are turned away.
///
/// Any thread may write. Nothing is logged while the list of clients is locked: the log may be waiting for
/// just that.
class TelnetServer : public JThread {
 public:
  static constexpr int kWriteTimeout = 1000;  ///< milliseconds
  static constexpr std::size_t kMaxClients = 32;

  /// Takes a port of an interface by its number, with 0 of all of them. Throws when it can't be had.
  TelnetServer(const std::string& sOutputName, int iInterface, std::uint16_t uPort);
  ~TelnetServer() override;

  /// The server of an interface and a port, made when there is none. The name is that of the output that
  /// asks. Throws when the port can't be had or there is no thread.
  static std::shared_ptr<TelnetServer> share(const std::string& sOutputName, int iInterface,
                                             std::uint16_t uPort);

  /// Ends all servers that no output has any more.
  static void deleteFree();

  void write(const std::string& sText);

  /// The port; the system's choice when it was made with 0.
  std::uint16_t getPort() const noexcept { return m_uPort; }

  /// Clients that are connected, as far as that has shown.
  std::size_t getClientCount();

 private:
  /// The socket that clients come to.
  class Listener : public JTCPSocket {
   public:
    explicit Listener(const JInetAddr& address);
  };

  void run() override;
  void add(std::unique_ptr<JSocket> pClient);

  Listener m_listener;
  std::uint16_t m_uPort = 0;
  JFlag m_stop{false};
  JMutex m_mutex;  ///< over the clients
  std::vector<std::unique_ptr<JSocket>> m_clients;
};

}  // namespace qm_utils
