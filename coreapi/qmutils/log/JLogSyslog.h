#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLogOutput.h"

namespace qm_utils {
class LogUdpSocket;
}

/// Sends each record to a syslog server in a UDP datagram of the traditional form (RFC 3164): "<%d>%s %2d
/// %02d:%02d:%02d %s %s" with priority, month, day and time of day in local time, host name and line, at most
/// 1024 bytes. The priority is 8 times the facility, and the severity of the level.
///
/// What keeps the socket from being opened is told once, at level ERROR; every line is dropped then.
///
/// The server is looked up, and the socket opened, when the output is made; but a server that has to be asked
/// of a resolver, which may take long, is looked up on the output's own thread, with the first record.
class JLogSyslog : public JLogFormattedOutput {
 public:
  /// Where records go and under what names. The values of the same names of a key of the configuration, all
  /// but the first two of type DWORD.
  struct Settings {
    std::string sHostName;            ///< `HostName`; empty for the name of this machine
    std::string sServer;              ///< `Server`; required
    std::uint32_t uLocalPort = 514;   ///< `LocalPort`, below 1024 only for the superuser; 0: any
    std::uint32_t uServerPort = 514;  ///< `ServerPort`
    std::uint32_t uInterface = 0;     ///< `IpInterfaceNumber`, from 1; 0: any
    std::int32_t iPrecedence = -1;    ///< `Precedence`, 0 to 7; negative: not set
    std::uint32_t uFacility = 16;     ///< `Facility`, 16 to 23 for local use
  };

  JLogSyslog(std::string sName, Settings settings, std::uint32_t uMask = 0, const char* szFormat = nullptr,
             std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// From a key of the configuration.
  JLogSyslog(std::string sName, const qm_utils::IRegistryReadAccess& key,
             std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it sent.
  ~JLogSyslog() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;

  /// The severity of a level: 2 for CRITICAL down to 7 for debug texts.
  static int getSeverity(std::uint32_t uLevel) noexcept;

 private:
  void begin(bool bStart);
  void setUp();
  bool openSocket();

  Settings m_settings;
  bool m_bSetUp = false;
  std::unique_ptr<qm_utils::LogUdpSocket> m_pSocket;
};
