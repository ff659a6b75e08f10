#include "coreapi/qmutils/socket/jfilelimitedsocket.h"

#include <chrono>
#include <thread>

#include "coreapi/platform/clock.h"

JFileLimitedSocket::JFileLimitedSocket(const std::string& sPath, int iMode, std::uint32_t uLimit)
    : JFileSocket(sPath, iMode, true), m_uLimit(uLimit) {}

std::size_t JFileLimitedSocket::read(void* pBuffer, std::size_t uLength) {
  const std::size_t uBytes = JFileSocket::read(pBuffer, uLength);
  if (uBytes != 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(m_uLimit));
  }
  return uBytes;
}

std::size_t JFileLimitedSocket::write(const void* pBuffer, std::size_t uLength) {
  const std::int64_t iStart = qm_platform::steadyClockNanoseconds();
  const std::size_t uBytes = JFileSocket::write(pBuffer, uLength);
  holdBack(uBytes, iStart);
  return uBytes;
}

std::size_t JFileLimitedSocket::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  const std::int64_t iStart = qm_platform::steadyClockNanoseconds();
  const std::size_t uBytes = JFileSocket::writev(pBuffers, uCount);
  holdBack(uBytes, iStart);
  return uBytes;
}

void JFileLimitedSocket::holdBack(std::uint64_t uBytes, std::int64_t iStart) const {
  constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
  if (uBytes == 0 || m_uLimit == 0) {
    return;
  }
  const std::chrono::seconds seconds(uBytes / m_uLimit);
  const std::chrono::microseconds rest(uBytes % m_uLimit * kMicrosecondsPerSecond / m_uLimit);
  const std::chrono::nanoseconds taken(qm_platform::steadyClockNanoseconds() - iStart);
  std::this_thread::sleep_for(seconds + rest - taken);  // not at all when that is negative
}
