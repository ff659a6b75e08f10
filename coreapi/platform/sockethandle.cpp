#include "coreapi/platform/sockethandle.h"

#include <sys/socket.h>
#include <unistd.h>

namespace qm_platform {

namespace {

constexpr std::uint64_t kReader = 1;
constexpr std::uint64_t kReaders = 0xFFFF;
constexpr std::uint64_t kWriter = std::uint64_t{1} << 16;
constexpr std::uint64_t kWriters = std::uint64_t{0x7FFF} << 16;
constexpr std::uint64_t kClosed = std::uint64_t{1} << 31;
constexpr unsigned kNumberShift = 32;

constexpr int numberOf(std::uint64_t uState) noexcept {
  return static_cast<int>(uState >> kNumberShift) - 1;
}

constexpr bool isOpen(std::uint64_t uState) noexcept {
  return uState != 0 && (uState & kClosed) == 0;
}

constexpr std::uint64_t unitOf(SocketHandle::Side side) noexcept {
  switch (side) {
    case SocketHandle::Side::kRead:
      return kReader;
    case SocketHandle::Side::kWrite:
      return kWriter;
    case SocketHandle::Side::kBoth:
      break;
  }
  return kReader + kWriter;
}

}  // namespace

SocketHandle::Use::Use(SocketHandle& handle, Side side) noexcept
    : m_handle(handle), m_uUnit(unitOf(side)), m_iNumber(-1) {
  std::uint64_t uState = handle.m_uState.load(std::memory_order_acquire);
  while (isOpen(uState)) {
    if (handle.m_uState.compare_exchange_weak(uState, uState + m_uUnit, std::memory_order_acq_rel)) {
      m_iNumber = numberOf(uState);
      return;
    }
  }
}

SocketHandle::Use::~Use() {
  if (m_iNumber >= 0) {
    m_handle.leave(m_uUnit);
  }
}

bool SocketHandle::Use::isClosed() const noexcept {
  return !isOpen(m_handle.m_uState.load(std::memory_order_acquire));
}

void SocketHandle::leave(std::uint64_t uUnit) noexcept {
  const std::uint64_t uState = m_uState.fetch_sub(uUnit, std::memory_order_acq_rel) - uUnit;
  if ((uState & kClosed) != 0 && (uState & (kReaders | kWriters)) == 0) {
    ::close(numberOf(uState));
    m_uState.store(0, std::memory_order_release);
    m_uState.notify_all();
  }
}

int SocketHandle::number() const noexcept {
  const std::uint64_t uState = m_uState.load(std::memory_order_acquire);
  return isOpen(uState) ? numberOf(uState) : -1;
}

void SocketHandle::reset(int iNumber) noexcept {
  close();
  for (std::uint64_t uState = m_uState.load(std::memory_order_acquire); uState != 0;
       uState = m_uState.load(std::memory_order_acquire)) {
    m_uState.wait(uState, std::memory_order_acquire);
  }
  m_uState.store(static_cast<std::uint64_t>(iNumber + 1) << kNumberShift, std::memory_order_release);
}

int SocketHandle::close() noexcept {
  // The closer counts as a use itself, so that the number stays valid until the others are woken.
  constexpr std::uint64_t kOwnUse = kReader;
  std::uint64_t uState = m_uState.load(std::memory_order_acquire);
  do {
    if (!isOpen(uState)) {
      return -1;
    }
  } while (!m_uState.compare_exchange_weak(uState, (uState | kClosed) + kOwnUse, std::memory_order_acq_rel));
  const int iNumber = numberOf(uState);

  // A socket that is shut down answers calls that wait in it, and calls that are about to, at once; that is
  // what makes the wake-up certain. Only the sides in use are shut: a connection that nobody sends on gets no
  // orderly end ahead of what closing it does by its linger setting.
  const bool bReading = (uState & kReaders) != 0;
  const bool bWriting = (uState & kWriters) != 0;
  if (bReading || bWriting) {
    ::shutdown(iNumber, bReading && bWriting ? SHUT_RDWR : bReading ? SHUT_RD : SHUT_WR);
  }
  leave(kOwnUse);
  return iNumber;
}

}  // namespace qm_platform
