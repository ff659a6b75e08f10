#pragma once

#include <cstddef>

#include "coreapi/platform/socketcalls.h"
#include "coreapi/platform/socketerror.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/judpsocket.h"

namespace qm_utils {

/// The UDP socket of a log output. Its address may be shared with another socket's.
class LogUdpSocket : public JUDPSocket {
 public:
  /// Throws JSysError "socket" and "setsockopt".
  LogUdpSocket() { control("setsockopt", qm_platform::setReuseAddress); }

  using JUDPSocket::write;

  /// Sends a datagram. The system tells a refusal with the datagram behind the one that was refused, and
  /// doesn't send that: it is sent again at once, since the receiver may be there by now.
  std::size_t write(const void* pBuffer, std::size_t uLength) override {
    try {
      return JUDPSocket::write(pBuffer, uLength);
    } catch (JSysError* pError) {
      qm_err::CaughtError error(pError);
      if (pError->getCode() != (JSysError::kSocketClass | qm_platform::kSocketConnectionRefused)) {
        error.rethrow();
      }
    }
    return JUDPSocket::write(pBuffer, uLength);
  }

  /// Sets the precedence of what is sent, 0 to 7 (RFC 791). Throws JSysError "setsockopt".
  void setPrecedence(int iPrecedence) {
    control("setsockopt", [=](int iSocket) { return qm_platform::setPrecedence(iSocket, iPrecedence); });
  }
};

}  // namespace qm_utils
