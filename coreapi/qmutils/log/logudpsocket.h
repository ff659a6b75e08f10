#pragma once

#include "coreapi/platform/socketcalls.h"
#include "coreapi/qmutils/socket/judpsocket.h"

namespace qm_utils {

/// The UDP socket of a log output. Its address may be shared with another socket's.
class LogUdpSocket : public JUDPSocket {
 public:
  /// Throws JSysError "socket" and "setsockopt".
  LogUdpSocket() { control("setsockopt", qm_platform::setReuseAddress); }

  /// Sets the precedence of what is sent, 0 to 7 (RFC 791). Throws JSysError "setsockopt".
  void setPrecedence(int iPrecedence) {
    control("setsockopt", [=](int iSocket) { return qm_platform::setPrecedence(iSocket, iPrecedence); });
  }
};

}  // namespace qm_utils
