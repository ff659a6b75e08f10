#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "qmactivexctrl/common/qmeventsinks.h"

namespace qmctl {

/// Keeps the events of a control until they are read. Any thread.
class LinkEvents final : public IQMStorageAccessCtrlEvents {
 public:
  struct Event {
    std::int32_t iDispid;       ///< `qm_dispid::kLinkUp` or `kLinkDown`
    std::u16string sTextError;  ///< of a `LinkDown`
  };

  void LinkUp() override { keep({qm_dispid::kLinkUp, {}}); }
  void LinkDown(const char16_t* TextError) override { keep({qm_dispid::kLinkDown, TextError}); }

  /// Takes out the oldest event of a number, or the oldest of all for the number 0, and waits for it so many
  /// milliseconds; -1 waits for ever. Nothing when none has come.
  std::optional<Event> await(std::int32_t iDispid, std::int32_t iMilliseconds);

 private:
  void keep(Event event);

  std::mutex m_mutex;  ///< over the events
  std::condition_variable m_changed;
  std::deque<Event> m_events;
};

}  // namespace qmctl
