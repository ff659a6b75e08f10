#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/socket/jsocket.h"

/// A socket of datagrams. Threads as in `JSocket`.
class JDatagramSocket : public JSocket {
 public:
  /// Sets the peer that `read` and `write` exchange datagrams with. Throws JSysError "WSAConnect".
  virtual void connect(const JSockAddr& address);

  /// Receives one datagram within the read time-out. `iFlags` are the system's. `pFrom`, unless null, takes
  /// the sender's address. Throws JTimeoutError and JSysError "recvfrom"; so for a datagram larger than the
  /// buffer, whose rest is lost.
  std::size_t recvfrom(void* pBuffer, std::size_t uLength, int iFlags,
                       std::unique_ptr<JSockAddr>* pFrom = nullptr);

  /// Sends one datagram, without a time-out. Throws JSysError "sendto".
  std::size_t sendto(const void* pBuffer, std::size_t uLength, int iFlags, const JSockAddr& address);

 protected:
  using JSocket::JSocket;

  /// Makes a new datagram socket. Throws JSysError with the label.
  void makeHandle(const char* szFunction);

  /// `connect` under a label.
  void connectTo(const JSockAddr& address, const char* szFunction);
};

/// A UDP socket.
class JUDPSocket : public JDatagramSocket {
 public:
  /// A new socket, its buffers set to 65535 bytes each. The name `kDefaultName` stands for "UDPSocket". All
  /// constructors throw JSysError "socket".
  explicit JUDPSocket(std::uint32_t* pTraceMask = nullptr, const std::string& sName = kDefaultName);

  /// A new socket that is bound to a port of all interfaces; 0 lets the system choose one.
  explicit JUDPSocket(std::uint16_t uPort);

  /// A new socket that is bound to the first free port of a range, both ends included, and connected to a
  /// destination. With 0 at either end the system chooses the port. Tells each try on the standard output.
  /// Throws JSysError "socket" when no port is free, "connect".
  JUDPSocket(const JSockAddr& destination, std::uint16_t uFirstPort, std::uint16_t uLastPort);

  std::string getProtocol() const override;

  using JDatagramSocket::bind;

  /// Binds to a port of all interfaces. Throws JSysError "bind".
  void bind(std::uint16_t uPort);

  /// The port that the socket is bound to, host order. Throws JSysError "getsockname".
  std::uint16_t getLocalPort() const;

 protected:
  /// For those who make the handle themselves.
  struct NoHandle {};
  JUDPSocket(NoHandle, std::uint32_t* pTraceMask, const std::string& sName);

 private:
  void createHandle();
  void bindInRange(std::uint16_t uFirstPort, std::uint16_t uLastPort);
};

/// A socket whose datagrams go to all hosts of the local network.
class JBroadcastSocket : public JDatagramSocket {
 public:
  /// A new socket, not bound. Throws JSysError "socket" and "setsockopt(SO_BROADCAST)".
  JBroadcastSocket();

  /// A new socket that is bound to a port of all interfaces.
  explicit JBroadcastSocket(std::uint16_t uPort);

  /// Sends one datagram to a port of all hosts. Throws JSysError "sendto".
  virtual std::size_t send(const void* pBuffer, std::size_t uLength, std::uint16_t uPort);

  /// Makes the socket anew; the one before is closed.
  virtual void createHandle();

 private:
  JInetAddr m_destination;
};

/// A UDP socket that has joined a group. It sends with `sendto` to the group's address; one that only sends
/// may also `connect` to the group and `write`, which would keep a receiver from hearing anything.
class JIPMulticastSocket : public JUDPSocket {
 public:
  /// Joins a group as sender, receiver or both. `bindAddress` gives the port, and the interface unless it is
  /// the wildcard address. A socket that is both hears itself; of one that only sends no copy comes back to
  /// this machine, unless its interface is the loopback. Throws JTextError when it is neither, JSysError
  /// "WSASocket", "bind", "WSAJoinLeaf" and "WSAIoctl(SIO_MULTIPOINT_LOOPBACK)".
  JIPMulticastSocket(const JInetAddr& group, bool bSender, bool bReceiver, const JInetAddr& bindAddress,
                     std::uint32_t* pTraceMask = nullptr, const std::string& sName = kDefaultName);

  std::string getProtocol() const override;

  /// Leaves the group and frees the port, too.
  void close() override;

  /// Networks that datagrams to the group may pass: 1 keeps them in the local one. A failure is traced, not
  /// thrown.
  void setTTL(int iHops);

 private:
  void createHandle();
  void bindFor(const JInetAddr& group, const JInetAddr& bindAddress);
  void join(const JInetAddr& group, const JInetAddr& bindAddress);

  const bool m_bSender;
  const bool m_bReceiver;
  std::unique_ptr<JSocket> m_pLeaf;
};
