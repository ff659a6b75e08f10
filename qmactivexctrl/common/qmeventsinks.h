#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "qmactivexctrl/common/qmmembertable.h"

/// Something whose members are called by number.
class IQMDispatch {
 public:
  IQMDispatch() = default;
  IQMDispatch(const IQMDispatch&) = delete;
  IQMDispatch& operator=(const IQMDispatch&) = delete;
  virtual ~IQMDispatch() = default;

  /// Calls the member of a number with arguments in the order of declaration. The result goes into `pResult`,
  /// which may be null.
  virtual QMStatus Invoke(std::int32_t iDispid, QMInvokeKind eKind, std::span<const QMVariant> arguments,
                          QMVariant* pResult) = 0;
};

/// Base of what a host makes to hear of the two events. They come on the link's event thread, one at a time.
/// Both may call every member of the control, `Connect` and `Disconnect` included, and advise and unadvise,
/// but not delete the control. What they throw is logged where it is an error, and ignored.
class IQMStorageAccessCtrlEvents : public IQMDispatch {
 public:
  /// The link to the Manager is up, and operations work.
  virtual void LinkUp() = 0;

  /// The link went down, or couldn't be made; operations fail already. The text is good during the call.
  virtual void LinkDown(const char16_t* TextError) = 0;

  QMStatus Invoke(std::int32_t iDispid, QMInvokeKind eKind, std::span<const QMVariant> arguments,
                  QMVariant* pResult) final;
};

/// The sinks of a control's events, in the order in which they were connected. Any thread. The lock is held
/// only over the list, never while a sink is called.
class IConnectionPointImplMT {
 public:
  /// Connects a sink behind the others. Returns a number for `Unadvise`, never 0. The list shares the sink
  /// until then. Null fails an assertion and gives 0.
  std::uint32_t Advise(std::shared_ptr<IQMDispatch> pSink);

  /// Disconnects a sink; whether there was one of this number. No call of it begins afterwards; one that
  /// another thread is in goes on.
  bool Unadvise(std::uint32_t uCookie);

  /// Calls each sink in turn. One that is disconnected meanwhile is skipped; failures are ignored.
  void fire(std::int32_t iDispid, std::span<const QMVariant> arguments);

 private:
  std::shared_ptr<IQMDispatch> find(std::uint32_t uCookie);

  std::mutex m_mutex;
  std::vector<std::pair<std::uint32_t, std::shared_ptr<IQMDispatch>>> m_sinks;
  std::uint32_t m_uLastCookie = 0;
};
