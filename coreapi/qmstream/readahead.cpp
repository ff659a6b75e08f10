#include "coreapi/qmstream/readahead.h"

#include <algorithm>
#include <cstring>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jiobufiterator.h"

namespace qm_stream {

namespace {

/// How long a part of the stream has taken, against the connection's read time-out.
class PartTime {
 public:
  explicit PartTime(const JISocket& input) noexcept
      : m_input(input), m_iStart(qm_platform::steadyClockNanoseconds()) {}

  /// To be asked after a read that didn't complete the part.
  void check() const {
    constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
    const std::int64_t iLimit = m_input.getReadTimeout();
    if (iLimit >= 0 &&
        qm_platform::steadyClockNanoseconds() - m_iStart > iLimit * kNanosecondsPerMillisecond) {
      QM_THROW(JTimeoutError);
    }
  }

 private:
  const JISocket& m_input;
  std::int64_t m_iStart;
};

/// What a read gave; 0 is the peer's end, which comes too soon here.
std::size_t received(std::size_t uBytes) {
  if (uBytes == 0) {
    QM_THROW(EndOfFileError);
  }
  return uBytes;
}

/// Copies bytes into the buffers, from byte `uOffset` of them on.
void scatter(const JIoBuf* pBuffers, std::uint32_t uOffset, const std::uint8_t* pFrom, std::uint32_t uSize) {
  for (; uSize != 0; ++pBuffers) {
    if (uOffset >= pBuffers->bufLength) {
      uOffset -= pBuffers->bufLength;
      continue;
    }
    const std::uint32_t uPart = std::min(uSize, pBuffers->bufLength - uOffset);
    std::memcpy(static_cast<std::uint8_t*>(pBuffers->pBuf) + uOffset, pFrom, uPart);
    pFrom += uPart;
    uSize -= uPart;
    uOffset = 0;
  }
}

}  // namespace

ReadAhead::ReadAhead(JISocket& input, std::uint32_t uHeaderSize)
    : m_input(input), m_uHeaderSize(uHeaderSize), m_buffer(new std::uint8_t[kRoom]) {}

void ReadAhead::readHeader(std::uint8_t* pHeader, std::uint32_t& uFilled) {
  const auto takeKept = [&] {
    const std::uint32_t uPart = std::min(kept(), m_uHeaderSize - uFilled);
    std::memcpy(pHeader + uFilled, &m_buffer[m_uNext], uPart);
    m_uNext += uPart;
    uFilled += uPart;
    return uFilled == m_uHeaderSize;
  };
  if (takeKept()) {
    return;
  }
  const PartTime time(m_input);
  for (;;) {
    const std::uint32_t uMissing = m_uHeaderSize - uFilled;
    const std::size_t uBytes = received(m_input.read(m_buffer.get(), m_bSmall ? kRoom : uMissing));
    m_uNext = 0;
    m_uEnd = static_cast<std::uint32_t>(uBytes);
    if (takeKept()) {
      return;
    }
    time.check();
  }
}

void ReadAhead::readPayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset,
                            std::uint32_t uSize) {
  m_bSmall = uSize <= kSmallPayload;
  const std::uint32_t uKept = std::min(kept(), uSize);
  scatter(pBuffers, uOffset, &m_buffer[m_uNext], uKept);
  m_uNext += uKept;
  if (uKept != uSize) {
    receivePayload(pBuffers, uCount, uOffset + uKept, uSize - uKept);
  }
}

/// Reads a payload, of which nothing is kept here, and with it what stands behind it: the next header, or
/// more where frames are small.
void ReadAhead::receivePayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset,
                               std::uint32_t uSize) {
  JIoBufIterator io_it(pBuffers, uCount);
  io_it.advance(uOffset);
  io_it.limit(uSize);
  // Where the caller has used up all elements, the next header is read by itself.
  const std::uint32_t uWanted = m_bSmall ? kRoom : m_uHeaderSize;
  const std::uint32_t uBehind = io_it.append(m_buffer.get(), uWanted) ? uWanted : 0;
  const PartTime time(m_input);
  for (;;) {
    io_it.advance(received(m_input.readv(io_it.current(), io_it.count())));
    if (io_it.bufs_length() <= uBehind) {
      break;
    }
    time.check();
  }
  m_uNext = 0;
  m_uEnd = uBehind - static_cast<std::uint32_t>(io_it.bufs_length());
}

}  // namespace qm_stream
