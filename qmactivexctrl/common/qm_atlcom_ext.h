#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <typeinfo>

#include "coreapi/platform/typename.h"
#include "qmactivexctrl/common/qmeventsinks.h"

/// Calls of the control by number, with a trace of every call that comes in and every event that goes out.
/// Traces are log records of level ACTIVEX.
namespace qm_dispatch {

/// A call as traces show it.
struct Description {
  std::string sName;       ///< the member's name, or "DISPID = 99" for a number that isn't known
  std::string sArguments;  ///< such as "SourceName = 'gate' (VT_BSTR), Fps = '5' (VT_I4)"
};

/// Describes a call. `pCallable` is what has the number, or null.
Description describe(const QMCallable* pCallable, std::int32_t iDispid, std::span<const QMVariant> arguments);

/// Calls a member of the control between two traces, the first with the name of the control's class.
QMStatus invoke(IQMStorageAccessCtrl& control, const std::string& sClass, std::int32_t iDispid,
                QMInvokeKind eKind, std::span<const QMVariant> arguments, QMVariant* pResult);

/// Traces an event.
void traceEvent(const std::string& sClass, std::int32_t iDispid, std::span<const QMVariant> arguments);

}  // namespace qm_dispatch

/// The dispatch of a control: base of the class `T`, which is an `IQMStorageAccessCtrl`. Called on the thread
/// that the members are called on.
template <typename T>
class IQMDispatchImpl : public IQMDispatch {
 public:
  /// Calls a member by its number. A text argument goes where a number is wanted when it is one, and the
  /// other way round. On entry the result, where it has a value, is what the member's out argument holds on
  /// entry.
  ///
  /// `kMemberNotFound`, `kBadParameterCount` and `kTypeMismatch` are calls that reach no member; the result
  /// is as it was then.
  QMStatus Invoke(std::int32_t iDispid, QMInvokeKind eKind, std::span<const QMVariant> arguments,
                  QMVariant* pResult) override {
    return qm_dispatch::invoke(static_cast<T&>(*this), qm_platform::typeName(typeid(T)), iDispid, eKind,
                               arguments, pResult);
  }
};

/// A sink that traces the events of the class `T`.
template <typename T>
class EventDispatchLog final : public IQMDispatch {
 public:
  QMStatus Invoke(std::int32_t iDispid, QMInvokeKind /*eKind*/, std::span<const QMVariant> arguments,
                  QMVariant* /*pResult*/) override {
    qm_dispatch::traceEvent(qm_platform::typeName(typeid(T)), iDispid, arguments);
    return QMStatus::kOk;
  }
};

/// Owns the sink that traces the events of the class `T`, whose base it is. Connected first of all, it sees
/// each event before the host does.
template <typename T>
class IQMControlEventsLog {
 protected:
  void adviseLog(IConnectionPointImplMT& events) { m_uCookie = events.Advise(m_pSink); }
  void unadviseLog(IConnectionPointImplMT& events) { events.Unadvise(m_uCookie); }

 private:
  std::shared_ptr<EventDispatchLog<T>> m_pSink = std::make_shared<EventDispatchLog<T>>();
  std::uint32_t m_uCookie = 0;
};
