#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/socket/jsocket.h"

/// A socket of connections: a client after `connect`, a listener after `listen`. Threads as in `JSocket`.
class JStreamSocket : public JSocket {
 public:
  /// Takes a connection and wraps it in a plain `JSocket` with this one's trace mask and name. Null when
  /// the listener was closed while this waited. `pPeer`, unless null, takes the peer's address. Throws as
  /// `acceptHandle`.
  virtual std::unique_ptr<JSocket> accept(std::unique_ptr<JSockAddr>* pPeer = nullptr);

  /// Connects within the connect time-out. Throws JTimeoutError, after which the socket is good for nothing
  /// but being closed, and JSysError "WSAConnect" or "ioctlsocket(FIONBIO)".
  void connect(const JSockAddr& address);

  /// Throws JSysError "listen".
  void listen(int iBacklog);

  /// Takes a connection within the accept time-out and returns its number, which the caller owns; -1 when the
  /// listener was closed while this waited. The connection is probed when it is idle, and its close sends
  /// what is still unsent, whatever the listener's close does. Throws JTimeoutError and JSysError "accept".
  int acceptHandle(std::unique_ptr<JSockAddr>* pPeer = nullptr);

 protected:
  /// What an accepted connection's probing is set to.
  struct KeepAlive {
    std::int32_t iEnable = 0;     ///< above 0: probe
    std::uint32_t uTime = 0;      ///< milliseconds of silence before the first probe
    std::uint32_t uInterval = 0;  ///< milliseconds between probes
  };

  using JSocket::JSocket;

  KeepAlive m_keepAlive;

 private:
  void finishConnect(const Use& use, const JSockAddr& address, const std::string& sPeer);
  void applyKeepAlive(int iConnection);
};

/// A TCP socket. One that was made here, not accepted, resets its connection when it is closed and drops what
/// is still unsent: whoever must be sure that the peer has everything ends the writing side and reads until
/// the peer has closed.
class JTCPSocket : public JStreamSocket {
 public:
  /// A new socket. All constructors: mask and name as in `JSocket`. Throws JSysError "socket".
  explicit JTCPSocket(std::uint32_t* pTraceMask = nullptr, const std::string& sName = kDefaultName);

  /// A new socket that is connected, without a time-out.
  explicit JTCPSocket(const JSockAddr& address, std::uint32_t* pTraceMask = nullptr,
                      const std::string& sName = kDefaultName);

  /// A new socket that listens on a port of all interfaces; 0 lets the system choose one.
  explicit JTCPSocket(std::uint16_t uPort, std::uint32_t* pTraceMask = nullptr,
                      const std::string& sName = kDefaultName);

  /// Adopts a socket.
  explicit JTCPSocket(JSocketNumber handle, std::uint32_t* pTraceMask = nullptr,
                      const std::string& sName = kDefaultName);

  std::string getProtocol() const override;

  using JStreamSocket::write;
  using JStreamSocket::writev;

  /// Sends everything and returns `uLength`. With a write time-out it throws JTimeoutError when nothing could
  /// be taken for that long, and when bytes remain after that long in all; the peer may have had part of
  /// them.
  std::size_t write(const void* pBuffer, std::size_t uLength) override;

  /// As `write`, for at most `JIoBufIterator::kCapacity` buffers; of more it sends nothing and returns 0.
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;

  /// Binds to an address and port. A port on which connections of an earlier listener are still winding down
  /// counts as free.
  void bind(const JSockAddr& address) override;

  /// Binds to a port of all interfaces; 0 lets the system choose one. Throws JSysError "bind".
  void bind(std::uint16_t uPort);

  /// The port that the socket is bound to, host order. Throws JSysError "getsockname".
  std::uint16_t getLocalPort() const;

  /// As in `JStreamSocket`, with a `JTCPSocket` of the default name and no trace mask.
  std::unique_ptr<JSocket> accept(std::unique_ptr<JSockAddr>* pPeer = nullptr) override;

 protected:
  /// Whether a write that still has bytes to go may last on; `iStart` is when it began, nanoseconds of the
  /// steady clock. Throws JTimeoutError: here when it has lasted longer than the write time-out.
  virtual void checkWriteTime(std::int64_t iStart, const char* szOperation) const;

 private:
  void createHandle();
};
