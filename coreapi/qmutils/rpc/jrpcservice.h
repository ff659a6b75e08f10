#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "coreapi/qmutils/rpc/jrpcserver.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmutils/thread/jthread.h"

class JInetAddr;

/// A server that takes its connections from a TCP port, on a thread of its own.
///
/// `start` and `stop` belong to the owner. A derived class calls `stop` in its destructor.
class JRPCService : public JRPCServer, public JThread {
 public:
  /// Connections that wait to be taken.
  static constexpr int kBackLog = 5;

  /// Binds a port of all interfaces; 0 lets the system choose one. The service is called "NAME::RPC[PORT]".
  /// Throws JSysError "bind".
  JRPCService(std::uint16_t uPort, const std::string& sName, std::uint32_t* pTraceMask = nullptr);

  /// Binds an address and port. The service is called "NAME:RPC[ADDRESS:PORT]".
  JRPCService(const JInetAddr& address, const std::string& sName, std::uint32_t* pTraceMask = nullptr);
  ~JRPCService() override;

  using JTraceableObject::getName;

  /// The port that the service is bound to.
  std::uint16_t getPort() const noexcept { return m_uPort; }

  /// Listens, and takes connections from now on. Throws JSysError "listen", and as `JThread::start`.
  void start();

  /// Takes no more connections, and shuts the server down (see JRPCServer::shutdown). A second call does
  /// nothing.
  void stop();

  /// The body of the accept thread.
  void run() override;

 private:
  JTCPSocket m_listener;
  std::uint16_t m_uPort = 0;
  JFlag m_stop{true};
  std::atomic<bool> m_bStopped{false};
};
