#pragma once

#include <atomic>
#include <cstdint>

namespace qm_platform {

/// A socket's number with a count of the calls that are using it, so that any thread can close the socket
/// while others are inside calls on it: `close` wakes them, no call begins on the number afterwards, and the
/// number goes back to the system only when the last call has left. So no thread ever works on a number that
/// the system has meanwhile given to somebody else.
///
/// Any thread may use and close. `reset` is for one thread at a time. The object itself must outlive all
/// uses.
class SocketHandle {
 public:
  /// What a call does with the socket, which decides how it is woken.
  enum class Side {
    kRead,   ///< receive or accept, and whatever doesn't block
    kWrite,  ///< send
    kBoth,   ///< connect
  };

  /// One call's use of the socket, for its lifetime.
  class Use {
   public:
    Use(SocketHandle& handle, Side side) noexcept;
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    /// The socket's number; -1 when there is none or it had been closed before this use began.
    int number() const noexcept { return m_iNumber; }

    /// Whether the socket was closed while this use lasted.
    bool isClosed() const noexcept;

   private:
    SocketHandle& m_handle;
    std::uint64_t m_uUnit;
    int m_iNumber;
  };

  SocketHandle() noexcept = default;
  ~SocketHandle() { close(); }
  SocketHandle(const SocketHandle&) = delete;
  SocketHandle& operator=(const SocketHandle&) = delete;

  /// The socket's number; -1 when there is none or it was closed.
  int number() const noexcept;

  /// Takes over a socket. The one before is closed, and this waits until the last use of it has ended.
  void reset(int iNumber) noexcept;

  /// Closes the socket and wakes whoever is inside a call on it. Returns its number, or -1 when there was
  /// nothing to close. A second call does nothing.
  int close() noexcept;

 private:
  void leave(std::uint64_t uUnit) noexcept;

  /// Bits 0 to 15: uses that read. 16 to 30: uses that write. 31: closed. 32 to 63: the number plus 1. All
  /// zero: no socket.
  std::atomic<std::uint64_t> m_uState{0};
};

}  // namespace qm_platform
