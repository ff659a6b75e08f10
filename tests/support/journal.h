#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace qm_test {

/// What happened, in order, for a test to wait for. Any thread may add.
template <typename Item>
class Journal {
 public:
  void add(Item item) {
    const std::lock_guard lock(m_mutex);
    m_items.push_back(std::move(item));
    m_changed.notify_all();
  }

  /// Blocks until there are this many items, and gives all there are then.
  std::vector<Item> await(std::size_t uCount) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_items.size() >= uCount; });
    return m_items;
  }

  std::vector<Item> items() { return await(0); }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Item> m_items;
};

}  // namespace qm_test
