#pragma once

#include <atomic>
#include <functional>

#include "coreapi/platform/interrupts.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"

namespace qmctl {

/// Watches over a copy that runs on the thread that made this: shows now and then how far it is, and ends it
/// in order when the user interrupts the tool.
class CopyWatch final : public JThread {
 public:
  /// The control stays the caller's. `show`, which may be empty, is called on the thread of the watch.
  CopyWatch(JQMStorageAccessCtrl& control, std::function<void()> show);
  ~CopyWatch() override;

  /// Ends the watch. The signal that has interrupted the copy, or 0.
  int finish();

  void run() override;

 private:
  JQMStorageAccessCtrl& m_control;
  const std::function<void()> m_show;
  qm_platform::InterruptCatcher m_interrupts;
  std::atomic<bool> m_bFinished{false};
};

}  // namespace qmctl
