#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"

#include <array>

#include "coreapi/qmutils/params/jparamextract.h"
#include "coreapi/qmutils/params/jparams.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController.h"
#include "qmactivexctrl/qmstorageaccesscontroller/controlcall.h"
#include "qmactivexctrl/qmstorageaccesscontroller/controlids.h"
#include "qmactivexctrl/qmstorageaccesscontroller/environmenttext.h"

using qm_control::inside;
using qm_control::outside;

namespace {

/// Characters of the text of `LinkDown`, with the NUL.
constexpr std::size_t kErrorText = 1024;

/// A side of the control, 25 pixels, 96 of which are an inch, in hundredths of a millimetre.
constexpr std::uint32_t kSide = (25 * 2540 + 96 / 2) / 96;

}  // namespace

// Life.

JQMStorageAccessCtrl::JQMStorageAccessCtrl()
    : _cx(kSide), _cy(kSide), m_pStorageAccessCtrl(std::make_unique<StorageAccessController>(this)) {
  adviseLog(m_events);
}

JQMStorageAccessCtrl::~JQMStorageAccessCtrl() {
  qm_control::forgetControl(*this);
  m_pStorageAccessCtrl->forgetNotify();
  unadviseLog(m_events);
}

QMStatus JQMStorageAccessCtrl::GetId(std::int32_t& pInterface) {
  pInterface = 0;
  return run([&] { pInterface = qm_control::enterControl(*this); });
}

JQMStorageAccessCtrl* JQMStorageAccessCtrl::fromId(std::int32_t iId) noexcept {
  return qm_control::takeControl(iId);
}

QMStatus JQMStorageAccessCtrl::Save(std::vector<std::uint8_t>& stream) {
  return run([&] { stream = qm_control::writeProperties(*this, {_cx, _cy}); });
}

QMStatus JQMStorageAccessCtrl::Load(std::span<const std::uint8_t> stream) {
  bool bRead = false;
  const QMStatus eStatus = run([&] {
    if (const auto extent = qm_control::readProperties(*this, stream)) {
      _cx = extent->uWidth;
      _cy = extent->uHeight;
      bRead = true;
    }
  });
  return eStatus == QMStatus::kOk && !bRead ? QMStatus::kFail : eStatus;
}

QMStatus JQMStorageAccessCtrl::Save(IQMPropertyStorage& storage) {
  std::vector<std::uint8_t> stream;
  const QMStatus eStatus = Save(stream);
  if (eStatus != QMStatus::kOk) {
    return eStatus;
  }
  return storage.writeStream(qm_control::kPropertyStream, stream) ? QMStatus::kOk : QMStatus::kFail;
}

QMStatus JQMStorageAccessCtrl::Load(IQMPropertyStorage& storage) {
  std::vector<std::uint8_t> stream;
  return storage.readStream(qm_control::kPropertyStream, stream) ? Load(stream) : QMStatus::kFail;
}

// Events.

void JQMStorageAccessCtrl::linkUp(JRPCController* /*pContext*/) {
  m_events.fire(qm_dispid::kLinkUp, {});
}

void JQMStorageAccessCtrl::linkDown(JRPCController* /*pContext*/, JError* pError) {
  std::array<char, kErrorText> text{};
  getErrorMessage(pError, text.data(), text.size());
  const std::array arguments{QMVariant(JUTF8Codec::toWide(text.data()))};
  m_events.fire(qm_dispid::kLinkDown, arguments);
}

// The link.

QMStatus JQMStorageAccessCtrl::get_Server(std::u16string& Hostname) {
  Hostname.clear();
  return run([&] { Hostname = outside(m_pStorageAccessCtrl->getHost()); });
}

QMStatus JQMStorageAccessCtrl::put_Server(const char16_t* Server) {
  return run([&] { m_pStorageAccessCtrl->setHost(inside(Server)); });
}

QMStatus JQMStorageAccessCtrl::get_Port(std::int32_t& Port) {
  return run([&] { Port = m_pStorageAccessCtrl->getPort(); });
}

QMStatus JQMStorageAccessCtrl::put_Port(std::int32_t Port) {
  return run([&] { m_pStorageAccessCtrl->setPort(Port); });
}

QMStatus JQMStorageAccessCtrl::get_TunnelPort(std::int32_t& pTunnelPort) {
  return run([&] { pTunnelPort = m_pStorageAccessCtrl->getTunnelPort(); });
}

QMStatus JQMStorageAccessCtrl::put_TunnelPort(std::int32_t TunnelPort) {
  return run([&] { m_pStorageAccessCtrl->setTunnelPort(TunnelPort); });
}

QMStatus JQMStorageAccessCtrl::get_TimeOut(std::int32_t& TimeOut) {
  return run([&] { TimeOut = m_pStorageAccessCtrl->getTimeOut(); });
}

QMStatus JQMStorageAccessCtrl::put_TimeOut(std::int32_t TimeOut) {
  return run([&] { m_pStorageAccessCtrl->setTimeOut(TimeOut); });
}

QMStatus JQMStorageAccessCtrl::get_Blocking(std::int32_t& Blocking) {
  return run([&] { Blocking = m_pStorageAccessCtrl->getBlocking() ? 1 : 0; });
}

QMStatus JQMStorageAccessCtrl::put_Blocking(std::int32_t Blocking) {
  return run([&] { m_pStorageAccessCtrl->setBlocking(Blocking != 0); });
}

QMStatus JQMStorageAccessCtrl::get_Status(std::int32_t& Status) {
  Status = 0;
  return run([&] { Status = m_pStorageAccessCtrl->getStatus(); });
}

QMStatus JQMStorageAccessCtrl::Connect(std::int32_t& Result) {
  Result = -1;
  return run([&] { Result = m_pStorageAccessCtrl->connect(); });
}

QMStatus JQMStorageAccessCtrl::Disconnect() {
  return run([&] { m_pStorageAccessCtrl->disconnect(); });
}

QMStatus JQMStorageAccessCtrl::Rehash(std::int32_t& Result) {
  return Connect(Result);
}

int JQMStorageAccessCtrl::getServerVersion(std::int32_t& iMajor, std::int32_t& iMinor) {
  return m_pStorageAccessCtrl->getServerVersion(iMajor, iMinor);
}

// Results of queries, and messages.

QMStatus JQMStorageAccessCtrl::GetNext(std::int32_t QueryId, std::u16string& Item) {
  return ask(Item, u"", &IStorageAccessControl::getNext, QueryId);
}

QMStatus JQMStorageAccessCtrl::ReleaseQuery(std::int32_t QueryId) {
  return run([&] { m_pStorageAccessCtrl->releaseQuery(QueryId); });
}

QMStatus JQMStorageAccessCtrl::GetLastError(std::u16string& LastError) {
  return ask(LastError, u"", &IStorageAccessControl::getLastError);
}

QMStatus JQMStorageAccessCtrl::AnalyticsGetQueryStatus(std::int32_t QueryId, std::u16string& StatusInfo) {
  JASSERT(m_pStorageAccessCtrl);
  StatusInfo.clear();
  return run([&] {
    std::string sStatus;
    if (m_pStorageAccessCtrl->analyticsGetQueryStatus(QueryId, sStatus) >= 0) {
      StatusInfo = outside(sStatus);
    }
  });
}

// Reads of parameter texts.

QMStatus JQMStorageAccessCtrl::ExtractInteger(const char16_t* Parameter, const char16_t* Params,
                                              std::int32_t& Value) {
  return run([&] { extractInteger(inside(Parameter).c_str(), inside(Params).c_str(), Value); });
}

QMStatus JQMStorageAccessCtrl::ExtractString(const char16_t* Parameter, const char16_t* Params,
                                             std::u16string& Value) {
  return run([&] {
    std::string sValue;
    extractString(inside(Parameter).c_str(), inside(Params).c_str(), sValue);
    Value = outside(sValue);
  });
}

QMStatus JQMStorageAccessCtrl::ExtractBoolean(const char16_t* Parameter, const char16_t* Params,
                                              std::int32_t& Value) {
  Value = 0;
  return run([&] {
    bool bValue = false;
    extractBoolean(inside(Parameter).c_str(), inside(Params).c_str(), bValue);
    Value = bValue ? 1 : 0;
  });
}

QMStatus JQMStorageAccessCtrl::ExtractNumber(const char16_t* Parameter, const char16_t* Params,
                                             float& Value) {
  Value = 0;
  return run([&] {
    double dValue = 0;
    extractNumber(inside(Parameter).c_str(), inside(Params).c_str(), dValue);
    Value = static_cast<float>(dValue);
  });
}

// The copy into a process.

QMStatus JQMStorageAccessCtrl::RemoteCopyToProcess(const char16_t* SourceName, std::int32_t Fps,
                                                   const char16_t* Format, const char16_t* CommandLine,
                                                   const char16_t* AdditionalEnvironmentVariables,
                                                   std::int32_t RedirectOutput, std::int32_t RedirectError,
                                                   const char16_t* BackupStartDate,
                                                   const char16_t* BackupEndDate, std::u16string& Result) {
  return run([&] {
    const auto variables = qm_control::splitEnvironment(inside(AdditionalEnvironmentVariables));
    std::vector<const char*> environment;
    for (const std::string& sVariable : variables) {
      environment.push_back(sVariable.c_str());
    }
    environment.push_back(nullptr);

    std::string sOutput;
    std::string sError;
    std::int32_t iTerminationStatus = 0;
    const std::int32_t iErrorCode = m_pStorageAccessCtrl->remoteCopyToProcess(
        inside(SourceName), Fps, inside(Format), inside(CommandLine), environment.data(),
        inside(BackupStartDate), inside(BackupEndDate), RedirectOutput != 0 ? &sOutput : nullptr,
        RedirectError != 0 ? &sError : nullptr, iTerminationStatus);

    JParams result;
    result.add("ErrorCode", iErrorCode);
    result.add("TerminationStatus", iTerminationStatus);
    if (RedirectOutput != 0) {
      result.add("OutputString", sOutput);
    }
    if (RedirectError != 0) {
      result.add("ErrorString", sError);
    }
    std::string sResult;
    result.toText(sResult, ',');
    Result = outside(sResult);
  });
}
