#pragma once

#include <cstdint>

/// Numbers of socket errors. All rooms above this one know them by their Windows Sockets numbers, by which
/// their texts are kept; `errno` values end here.
namespace qm_platform {

/// A Windows Sockets error number; 0 means success.
using SocketError = std::uint32_t;

constexpr SocketError kSocketInterrupted = 10004;
constexpr SocketError kSocketInvalidArgument = 10022;
constexpr SocketError kSocketWouldBlock = 10035;
constexpr SocketError kSocketNotSocket = 10038;
constexpr SocketError kSocketMessageSize = 10040;
constexpr SocketError kSocketFamilyNotSupported = 10047;
constexpr SocketError kSocketNotConnected = 10057;
constexpr SocketError kSocketConnectionRefused = 10061;
constexpr SocketError kSocketHostNotFound = 11001;
constexpr SocketError kSocketTryAgain = 11002;
constexpr SocketError kSocketNoRecovery = 11003;
constexpr SocketError kSocketNoData = 11004;

/// The number for an `errno` value. A value without one is 10107, "a system call that should never fail has
/// failed".
SocketError socketErrorFromErrno(int error) noexcept;

/// The number for a failure of the resolver (an EAI code of `getaddrinfo` and its kin): 11001 to 11004.
SocketError socketErrorFromResolver(int code) noexcept;

}  // namespace qm_platform
