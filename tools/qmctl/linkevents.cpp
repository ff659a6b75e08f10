#include "tools/qmctl/linkevents.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace qmctl {

void LinkEvents::keep(Event event) {
  const std::lock_guard lock(m_mutex);
  m_events.push_back(std::move(event));
  m_changed.notify_all();
}

std::optional<LinkEvents::Event> LinkEvents::await(std::int32_t iDispid, std::int32_t iMilliseconds) {
  std::unique_lock lock(m_mutex);
  auto it = m_events.end();
  const auto isThere = [&] {
    it = std::ranges::find_if(m_events,
                              [&](const Event& event) { return iDispid == 0 || event.iDispid == iDispid; });
    return it != m_events.end();
  };
  if (iMilliseconds < 0) {
    m_changed.wait(lock, isThere);
  } else if (!m_changed.wait_for(lock, std::chrono::milliseconds(iMilliseconds), isThere)) {
    return std::nullopt;
  }
  Event event = std::move(*it);
  m_events.erase(it);
  return event;
}

}  // namespace qmctl
