#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLogOutput.h"

namespace qm_utils {
class TelnetServer;
}

/// Writes each line to everybody who is connected to a TCP port of this machine. Outputs for the same
/// interface and port have the same clients. Each line ends in a carriage return and a line feed.
///
/// What keeps the port from being had is told at level ERROR; every line is dropped then. The port is given
/// up by `JLog::deleteOutputs` when no output has it any more.
class JTelnetOutput : public JLogFormattedOutput {
 public:
  /// `iInterface` is the number of the interface to listen on, from 1; 0: all of them. With port 0 the system
  /// chooses one.
  JTelnetOutput(std::string sName, std::uint16_t uPort, int iInterface = 0, std::uint32_t uMask = 0,
                const char* szFormat = nullptr, std::uint32_t uQueueCapacity = JLog::kQueueCapacity,
                int iPriority = 0, bool bStart = true);

  /// From a key of the configuration with the values `TelnetPort`, which is required, and
  /// `TelnetInterfaceNumber`.
  JTelnetOutput(std::string sName, const qm_utils::IRegistryReadAccess& key,
                std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it written.
  ~JTelnetOutput() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;

  /// The port that clients connect to; 0 when it couldn't be had.
  std::uint16_t getPort() const noexcept;

  /// Clients that are connected, as far as that has shown.
  std::size_t getClientCount() const;

 private:
  void listen(std::uint32_t uInterface, std::uint32_t uPort);

  std::shared_ptr<qm_utils::TelnetServer> m_pServer;
};
