#pragma once

#include <cstddef>
#include <deque>
#include <string>

/// The last failure messages of a controller, for its host: the newest comes out first, and the oldest is
/// dropped when the capacity is reached. Not locked: its user holds the controller's lock.
class StackError {
 public:
  explicit StackError(std::size_t capacity = 5) : m_capacity(capacity) {}
  virtual ~StackError() = default;
  StackError(const StackError&) = delete;
  StackError& operator=(const StackError&) = delete;

  /// Adds a printf-style message of at most 2047 characters, and returns it.
  [[gnu::format(printf, 2, 3)]] std::string push(const char* szFormat, ...);

  /// Takes the newest message out; the empty string when there is none.
  std::string pop();

 private:
  std::deque<std::string> m_messages;
  std::size_t m_capacity;
};
