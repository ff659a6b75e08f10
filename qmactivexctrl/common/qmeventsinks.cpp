#include "qmactivexctrl/common/qmeventsinks.h"

#include <algorithm>
#include <exception>

#include "coreapi/qmutils/error/jerror.h"

QMStatus IQMStorageAccessCtrlEvents::Invoke(std::int32_t iDispid, QMInvokeKind /*eKind*/,
                                            std::span<const QMVariant> arguments, QMVariant* /*pResult*/) {
  if (iDispid == qm_dispid::kLinkUp) {
    LinkUp();
    return QMStatus::kOk;
  }
  std::u16string sError;
  if (iDispid != qm_dispid::kLinkDown) {
    return QMStatus::kMemberNotFound;
  }
  if (arguments.size() != 1) {
    return QMStatus::kBadParameterCount;
  }
  if (!arguments[0].get(sError)) {
    return QMStatus::kTypeMismatch;
  }
  LinkDown(sError.c_str());
  return QMStatus::kOk;
}

std::uint32_t IConnectionPointImplMT::Advise(std::shared_ptr<IQMDispatch> pSink) {
  JASSERT(pSink);
  if (pSink == nullptr) {
    return 0;
  }
  const std::lock_guard lock(m_mutex);
  m_sinks.emplace_back(++m_uLastCookie, std::move(pSink));
  return m_uLastCookie;
}

bool IConnectionPointImplMT::Unadvise(std::uint32_t uCookie) {
  std::shared_ptr<IQMDispatch> pSink;  // goes after the lock: its end is the host's code
  const std::lock_guard lock(m_mutex);
  const auto it = std::ranges::find(m_sinks, uCookie, [](const auto& sink) { return sink.first; });
  if (it == m_sinks.end()) {
    return false;
  }
  pSink = std::move(it->second);
  m_sinks.erase(it);
  return true;
}

std::shared_ptr<IQMDispatch> IConnectionPointImplMT::find(std::uint32_t uCookie) {
  const std::lock_guard lock(m_mutex);
  const auto it = std::ranges::find(m_sinks, uCookie, [](const auto& sink) { return sink.first; });
  return it != m_sinks.end() ? it->second : nullptr;
}

void IConnectionPointImplMT::fire(std::int32_t iDispid, std::span<const QMVariant> arguments) {
  std::vector<std::uint32_t> cookies;
  {
    const std::lock_guard lock(m_mutex);
    for (const auto& [uCookie, pSink] : m_sinks) {
      cookies.push_back(uCookie);
    }
  }
  for (const std::uint32_t uCookie : cookies) {
    const std::shared_ptr<IQMDispatch> pSink = find(uCookie);
    if (pSink == nullptr) {
      continue;
    }
    try {
      pSink->Invoke(iDispid, QMInvokeKind::kMethod, arguments, nullptr);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    } catch (const std::exception& exception) {
      qm_err::log(qm_err::kLogException, "A sink of events threw: %s", exception.what());
    }
  }
}
