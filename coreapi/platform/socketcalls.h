#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "coreapi/platform/socketerror.h"

/// The system's socket calls, each reporting 0 or a Windows Sockets error number. Interrupted calls are taken
/// up again. Sockets are IPv4 and close-on-exec, and sending never raises SIGPIPE. Addresses are the bytes of
/// the platform's socket address.
namespace qm_platform {

/// Room for any IPv4 socket address.
constexpr std::size_t kSocketAddressSize = 16;

/// Most buffers that one scattering or gathering call takes.
constexpr std::size_t kMaxSocketBuffers = 512;

/// The largest payload of a UDP datagram over IPv4: 65535 less the two headers of 20 and 8 bytes (RFC 768,
/// RFC 791).
constexpr int kLargestDatagram = 65507;

enum class SocketKind { kStream, kDatagram };

/// An address as a call gives it out.
struct SocketAddressBytes {
  std::uint8_t bytes[kSocketAddressSize];
  std::size_t size = 0;
};

/// A buffer of a scattering or gathering call, in the layout that the platform's own record has.
struct SocketBuffer {
  void* pData;
  std::size_t uSize;
};

/// What a receive gave.
struct Received {
  std::size_t uBytes = 0;
  bool bTruncated = false;  ///< the datagram was larger than the buffers, and its rest is lost
};

SocketError createSocket(SocketKind kind, int& iSocket) noexcept;
SocketError duplicateSocket(int iSocket, int& iDuplicate) noexcept;

SocketError bindSocket(int iSocket, std::span<const std::uint8_t> address) noexcept;

/// Starts listening; the listener doesn't block in `acceptConnection` from then on.
SocketError listenSocket(int iSocket, int iBacklog) noexcept;

/// Takes a waiting connection; `kSocketWouldBlock` when there is none. What the connection inherits from its
/// listener is undone: closing it sends what is still unsent. `iConnection` is -1 after a failure.
SocketError acceptConnection(int iListener, int& iConnection, SocketAddressBytes& peer) noexcept;

/// Connects. `bPending`: a connection of a non-blocking socket goes on in the background; that is no error.
SocketError connectSocket(int iSocket, std::span<const std::uint8_t> address, bool& bPending) noexcept;

SocketError setNonBlocking(int iSocket, bool bNonBlocking) noexcept;

/// Whether a socket carries datagrams; false for what is no socket.
bool isDatagramSocket(int iSocket) noexcept;

/// Receives once into a buffer; the cheapest call for that, which has to be told whether it is about
/// datagrams. Else as `receive`.
SocketError receiveBytes(int iSocket, void* pBuffer, std::size_t uLength, bool bWait, bool bDatagram,
                         Received& received) noexcept;

/// Sends once from a buffer to the connected peer. Else as `send`.
SocketError sendBytes(int iSocket, const void* pBuffer, std::size_t uLength, bool bWait,
                      std::size_t& uSent) noexcept;

/// Receives once into the buffers. With `bWait` clear it gives `kSocketWouldBlock` when nothing is there.
/// `from`, unless null, takes the sender's address. `iFlags` are the system's own.
SocketError receive(int iSocket, std::span<const SocketBuffer> buffers, bool bWait, int iFlags,
                    Received& received, SocketAddressBytes* from) noexcept;

/// Sends once from the buffers; `uSent` may be less than they hold. An empty address means the connected
/// peer.
SocketError send(int iSocket, std::span<const SocketBuffer> buffers, bool bWait, int iFlags,
                 std::span<const std::uint8_t> to, std::size_t& uSent) noexcept;

/// Waits until a socket can be read (or written), has failed or was shut down. `bReady` is false when the
/// time is over. Milliseconds; a negative value waits for ever.
SocketError waitForSocket(int iSocket, bool bToWrite, std::int64_t iMilliseconds, bool& bReady) noexcept;

SocketError shutdownSocket(int iSocket, bool bWrite) noexcept;
SocketError getSocketOption(int iSocket, int iLevel, int iName, void* pValue, int& iLength) noexcept;
SocketError setSocketOption(int iSocket, int iLevel, int iName, const void* pValue, int iLength) noexcept;
SocketError localAddress(int iSocket, SocketAddressBytes& address) noexcept;
SocketError remoteAddress(int iSocket, SocketAddressBytes& address) noexcept;

/// Takes the error that a connection in the background ended with (SO_ERROR); 0 when it stands.
SocketError takeSocketError(int iSocket) noexcept;

/// Makes a closing TCP socket reset its connection and drop what is unsent.
SocketError setResetOnClose(int iSocket) noexcept;

/// Undoes it: closing sends what is still unsent, in the background.
SocketError setSendOnClose(int iSocket) noexcept;

/// Lets a listener take a port on which connections of an earlier one are still winding down.
SocketError setReuseAddress(int iSocket) noexcept;
SocketError setBroadcast(int iSocket) noexcept;
SocketError setSendBuffer(int iSocket, int iBytes) noexcept;
SocketError setReceiveBuffer(int iSocket, int iBytes) noexcept;

/// Sets the precedence of packets, 0 to 7: the three high bits of their type of service (RFC 791).
SocketError setPrecedence(int iSocket, int iPrecedence) noexcept;

/// Probes an idle connection after `iTime` and then each `iInterval` milliseconds, rounded up to seconds.
SocketError setKeepAlive(int iSocket, bool bEnable, std::uint32_t uTime, std::uint32_t uInterval) noexcept;

/// The most bytes of one packet: what a TCP connection's path lets a segment carry, or the largest datagram.
SocketError largestPacket(int iSocket, int& iBytes) noexcept;

/// Joins an IPv4 group (address bytes in network order) on the interface that has an address; 0 lets the
/// system choose. Datagrams of groups that this socket didn't join stay away from it.
SocketError joinGroup(int iSocket, std::uint32_t uGroup, std::uint32_t uInterface) noexcept;

/// Sends to groups through the interface that has an address; 0 lets the system choose.
SocketError setGroupInterface(int iSocket, std::uint32_t uInterface) noexcept;
SocketError setGroupLoopback(int iSocket, bool bEnable) noexcept;
SocketError setGroupTTL(int iSocket, int iHops) noexcept;

}  // namespace qm_platform
