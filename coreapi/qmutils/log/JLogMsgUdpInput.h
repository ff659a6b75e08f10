#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/log/JLogGenericMsgInput.h"

/// Takes the records that other processes of this machine send, one a UDP datagram, on a port of the
/// loopback.
class JLogMsgUdpInput : public JLogGenericMsgInput {
 public:
  /// Milliseconds after which a read looks whether the thread is to end.
  static constexpr int kReadTimeout = 1000;

  /// With port 0 the system chooses one. Throws JSysError "bind" when the port is taken, and as
  /// `JLogGenericMsgInput`.
  JLogMsgUdpInput(const std::string& sName, std::uint16_t uPort, int iBufferSize, bool bStart = true);
  ~JLogMsgUdpInput() override;

  /// As in the base class, and wakes a read that waits.
  bool stop(int iTimeout, bool bWait) override;

  /// The port that records are taken on.
  std::uint16_t getPort() const noexcept { return m_uPort; }

 private:
  void wake() const;

  std::uint16_t m_uPort;
};
