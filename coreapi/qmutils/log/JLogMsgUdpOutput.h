#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/log/JLogGenericMsgOutput.h"

/// Sends records to another process, one a UDP datagram, from a port that the system chooses.
class JLogMsgUdpOutput : public JLogGenericMsgOutput {
 public:
  /// With an empty server, says so at level WARNING and drops all records. Throws what looking up the server
  /// and making the socket throw, and as `JLogGenericMsgOutput`.
  JLogMsgUdpOutput(const std::string& sName, const std::string& sServer, std::uint16_t uPort, int iBufferSize,
                   std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0,
                   bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it sent.
  ~JLogMsgUdpOutput() override;
};
