#include "coreapi/qmutils/log/JLogSyslog.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "coreapi/platform/netname.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/logudpsocket.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/time/jsplittime.h"

namespace {

/// Bytes of a datagram at most (RFC 3164).
constexpr std::size_t kMaxDatagram = 1024;

constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

JLogSyslog::Settings readSettings(const qm_utils::IRegistryReadAccess& key) {
  JLogSyslog::Settings settings;
  key.getString("HostName", settings.sHostName);
  key.getString("Server", settings.sServer);
  key.getDword("LocalPort", settings.uLocalPort);
  key.getDword("ServerPort", settings.uServerPort);
  key.getDword("IpInterfaceNumber", settings.uInterface);
  if (std::uint32_t uPrecedence = 0; key.getDword("Precedence", uPrecedence)) {
    settings.iPrecedence = static_cast<std::int32_t>(uPrecedence);
  }
  key.getDword("Facility", settings.uFacility);
  return settings;
}

std::string threadName(const std::string& sName, const JLogSyslog::Settings& settings) {
  return sName + " [Log:Out:Formatted:Syslog to " + settings.sServer + ":" +
         std::to_string(settings.uServerPort) + "]";
}

std::uint16_t toPort(std::uint32_t uPort) {
  if (uPort > std::numeric_limits<std::uint16_t>::max()) {
    QM_THROW(JTextError, "%u is no port", uPort);
  }
  return static_cast<std::uint16_t>(uPort);
}

/// Runs a step of the set-up. False, and a line in the log, when it fails.
template <typename Step>
bool succeeds(const std::string& sFailure, Step step) {
  try {
    step();
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "SysLog network logging not started: %s: %s", sFailure.c_str(),
                error->getMessage().c_str());
    return false;
  }
}

}  // namespace

JLogSyslog::JLogSyslog(std::string sName, Settings settings, std::uint32_t uMask, const char* szFormat,
                       std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, settings), uMask, szFormat, true, uQueueCapacity,
                          iPriority),
      m_settings(std::move(settings)) {
  begin(bStart);
}

JLogSyslog::JLogSyslog(std::string sName, const qm_utils::IRegistryReadAccess& key,
                       std::uint32_t uQueueCapacity, int iPriority, bool bStart)
    : JLogFormattedOutput(sName, threadName(sName, readSettings(key)), key, true, uQueueCapacity, iPriority),
      m_settings(readSettings(key)) {
  begin(bStart);
}

JLogSyslog::~JLogSyslog() {
  JLogSyslog::stop(0, true);
}

void JLogSyslog::begin(bool bStart) {
  std::uint32_t uAddress = 0;
  const bool bLookUp =
      !m_settings.sServer.empty() && !qm_platform::parseAddress(m_settings.sServer, uAddress);
  if (!bStart || !bLookUp) {
    setUp();
  }
  if (bStart) {
    JLogSyslog::start();
  }
}

void JLogSyslog::setUp() {
  m_bSetUp = true;
  if (m_settings.sHostName.empty()) {
    m_settings.sHostName = qm_platform::computerName();
  }
  if (m_settings.sServer.empty()) {
    qm_err::log(qm_err::kLogError, "SysLog network logging not started: missing \"Server\" key in registry");
    return;
  }
  if (!openSocket()) {
    m_pSocket.reset();
  }
  std::replace_if(
      m_settings.sHostName.begin(), m_settings.sHostName.end(), [](char c) { return c == ' ' || c == '\t'; },
      '_');
}

/// Opens the socket as far as that succeeds.
bool JLogSyslog::openSocket() {
  JInetAddr server;
  JInetAddr local;
  return succeeds("could not resolve syslog server DNS name(" + m_settings.sServer + ")",
                  [&] { server.setAddress(m_settings.sServer, toPort(m_settings.uServerPort)); }) &&
         succeeds(
             qm_utils::format("could not find IP interface #%d", static_cast<int>(m_settings.uInterface)),
             [&] { local.setInterface(static_cast<int>(m_settings.uInterface)); }) &&
         succeeds(
             qm_utils::format("could not bind on local port (%d)", static_cast<int>(m_settings.uLocalPort)),
             [&] {
               m_pSocket = std::make_unique<qm_utils::LogUdpSocket>();
               local.setPort(toPort(m_settings.uLocalPort));
               m_pSocket->JSocket::bind(local);
             }) &&
         succeeds("could not connect to syslog server", [&] {
           m_pSocket->connect(server);
           if (m_settings.iPrecedence >= 0) {
             m_pSocket->setPrecedence(m_settings.iPrecedence);
           }
         });
}

int JLogSyslog::getSeverity(std::uint32_t uLevel) noexcept {
  switch (uLevel) {
    case qm_err::kLogFullDebug:
    case qm_err::kLogDebug:
    case qm_err::kLogTrace:
      return 7;
    case qm_err::kLogInfo:
      return 6;
    case qm_err::kLogWarning:
      return 4;
    case qm_err::kLogError:
      return 3;
    case qm_err::kLogCritical:
      return 2;
    default:
      return 5;
  }
}

void JLogSyslog::writeText(const JLog::Msg& record, const std::string& sLine) {
  if (!m_bSetUp) {
    setUp();
  }
  if (!m_pSocket) {
    return;
  }
  const JLocalSplitTime local(record.time);
  const qm_utils::CalendarFields& fields = local.getFields();
  const int iPriority = static_cast<int>(m_settings.uFacility * 8) + getSeverity(record.uLevel);
  std::string sDatagram =
      qm_utils::format("<%d>%s %2d %02d:%02d:%02d %s ", iPriority, kMonths[fields.iMonth], fields.iDayOfMonth,
                       fields.iHours, fields.iMinutes, fields.iSeconds, m_settings.sHostName.c_str());
  sDatagram += sLine;
  m_pSocket->write(sDatagram.data(), std::min(sDatagram.size(), kMaxDatagram));
}
