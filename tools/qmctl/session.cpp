#include "tools/qmctl/session.h"

#include <algorithm>
#include <optional>

#include "tools/qmctl/failure.h"
#include "tools/qmctl/text.h"

namespace {

constexpr std::int32_t kConnected = 2;

/// As many messages as a control keeps.
constexpr int kMostMessages = 5;

/// How long the outcome of a connection is waited for, in milliseconds, beside the time-outs of its calls:
/// the look-up of the host's name has a limit of the system's.
constexpr std::int32_t kNameLookUp = 60'000;

/// Calls and connections that may time out one after another on the way to a link.
constexpr std::int32_t kConnectSteps = 6;

std::int32_t connectLimit(std::int32_t iTimeOut) {
  constexpr std::int32_t kHighest = (INT32_MAX - kNameLookUp) / kConnectSteps;
  return iTimeOut < 0 ? -1 : kNameLookUp + kConnectSteps * std::min(iTimeOut, kHighest);
}

}  // namespace

namespace qmctl {

Session::Session(const Settings& settings) {
  m_control.getEvents().Advise(m_pEvents);
  m_control.put_Server(toControl(settings.sServer).c_str());
  m_control.put_Port(settings.iPort);
  m_control.put_TunnelPort(settings.iTunnelPort);
  m_control.put_TimeOut(settings.iTimeOut);
  // Not blocking: the event of a failure tells its reason.
  std::int32_t iResult = -1;
  m_control.Connect(iResult);
  const auto event = iResult == 0 ? m_pEvents->await(0, connectLimit(settings.iTimeOut))
                                  : std::optional<LinkEvents::Event>();
  if (!event || event->iDispid != qm_dispid::kLinkUp) {
    const std::string sReason = event ? fromControl(event->sTextError) : "no answer";
    throw Failure(kNoConnection, "no connection to " + settings.sServer + ":" +
                                     std::to_string(settings.iPort) + ": " + sReason);
  }
}

Session::~Session() {
  m_control.Disconnect();
}

bool Session::isConnected() {
  std::int32_t iStatus = 0;
  m_control.get_Status(iStatus);
  return iStatus == kConnected;
}

/// Throws the control's messages, newest first. Without a link the control gives its last one at every call.
void Session::fail() {
  std::string sText;
  for (int i = 0; i < kMostMessages; ++i) {
    std::u16string sMessage;
    m_control.GetLastError(sMessage);
    if (sMessage.empty()) {
      break;
    }
    sText += (sText.empty() ? "" : "\n") + fromControl(sMessage);
    if (!isConnected()) {
      break;
    }
  }
  throw Failure(kFailed, sText.empty() ? "the operation failed, and the link to the Manager is down" : sText);
}

void Session::forEachRow(const Query& query, const std::function<void(const std::string& sRow)>& take) {
  std::int32_t iQueryId = 0;
  query(m_control, iQueryId);
  if (iQueryId == 0) {
    fail();
  }
  std::u16string sRow;
  for (;;) {
    m_control.GetNext(iQueryId, sRow);
    if (sRow.empty()) {
      break;
    }
    take(fromControl(sRow));
  }
  // The end of the rows and the end of the link look the same.
  if (!isConnected()) {
    throw Failure(kFailed, "the link to the Manager went down; rows may be missing");
  }
}

void Session::run(const Command& command) {
  std::int32_t iResult = -1;
  command(m_control, iResult);
  if (iResult != 0) {
    fail();
  }
}

}  // namespace qmctl
