#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>

namespace qm_utils {

/// Says which of the lines that a client reads is the answer to its newest request.
///
/// A server answers in the order of the requests, one line each. A request whose caller gave up waiting
/// leaves its answer on the way; that answer must never be taken for a later request's. So every request is
/// noted here when it goes out, and every line that comes in is set against the oldest one that has none yet:
/// only the line that leaves nothing owed belongs to the newest.
///
///     call A   (time-out)          owed: A
///     PING     (time-out)          owed: A PONG
///     call B                       owed: A PONG B
///     <- "OK a=1"  late, dropped   owed:   PONG B
///     <- "PONG"    late, dropped   owed:        B
///     <- "OK b=2"  B's answer      owed: nothing
///
/// A "PONG" can be nothing else than the answer to a "PING", so it also settles everything that was asked
/// before that: calls of functions that have no answer. After a notification, which has none unless it fails,
/// nobody can tell by counting whose the next line is; the client then sends a "PING" before its next
/// request.
///
/// No lock; one thread at a time.
class OwedAnswers {
 public:
  enum class Request : std::uint8_t {
    kCall,    ///< one line comes
    kNotify,  ///< a line may come
    kPing,    ///< a "PONG" comes
  };

  /// A request goes out.
  void expect(Request request) { m_requests.push_back(request); }

  /// A line has come. True when it belongs to the newest request, false when it is to be dropped.
  bool settle(std::string_view sLine);

  /// Whether a line may be on the way of which nobody can tell whose it is.
  bool isUncertain() const noexcept;

  std::size_t count() const noexcept { return m_requests.size(); }

  /// A new connection owes nothing.
  void clear() noexcept { m_requests.clear(); }

 private:
  std::deque<Request> m_requests;  ///< those without a line, oldest first
};

}  // namespace qm_utils
