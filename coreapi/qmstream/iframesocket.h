#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmstream/readahead.h"
#include "coreapi/qmutils/log/jtraceableobject.h"
#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_stream {

/// The largest frame that is sent or received, in bytes. A header that claims more is refused before any
/// memory or time follows it.
inline constexpr std::uint32_t kMaxFrameSize = 64 * 1024 * 1024;

/// The receiving end of a framed stream: one frame a `readv`. It owns the connection that it wraps.
///
/// Only the protocol's own marker ends a stream: a peer that closes before it is an EndOfFileError, in the
/// midst of a frame or between two. The marker stays: each further read tells the end again.
///
/// Where not told otherwise an operation is the connection's own. One thread; any thread may `close`, which
/// wakes the reader with a JSysError.
class IFrameSocket : public JISocket, public JTraceableObject {
 public:
  ~IFrameSocket() override;

  std::uint32_t* getTraceMask() const override;
  const std::string& getName() const override;
  bool isTraceEnabled(std::uint32_t uBits) const override;
  [[gnu::format(printf, 2, 3)]] void trace(const char* szFormat, ...) const override;

  std::unique_ptr<JSockAddr> getLocalAddress() const override;
  std::unique_ptr<JSockAddr> getRemoteAddress() const override;
  void setReadTimeout(std::int32_t iMilliseconds) override;
  std::int32_t getReadTimeout() const override;
  const JTime& getTimeOrigin() const override;

  /// What the connection carries in one packet, less the header.
  std::uint32_t getMTU() const override;
  void close() override;
  void shutdownRead() override;

  /// `readv` of one buffer.
  std::size_t read(void* pBuffer, std::size_t uLength) override;

  /// Waits for the next frame's header and returns the bytes of its payload; 0 at the end of the stream. The
  /// frame stays, so that its reader can make room for it. Throws JTextError for a header that is wrong or
  /// claims more than `kMaxFrameSize`, EndOfFileError, and what the connection throws. JTimeoutError may be
  /// followed by another try.
  std::uint32_t getNextFrameSize();

 protected:
  /// Throws JTextError `szError` when there is no connection or its packets have no room for a header.
  IFrameSocket(std::unique_ptr<JISocket> pInner, const char* szNamePrefix, std::uint32_t uHeaderSize,
               std::uint32_t* pTraceMask, const char* szError);

  /// The header of the frame that `getNextFrameSize` told of.
  const std::uint8_t* getHeader() const noexcept { return m_header.data(); }

  /// Reads that frame's payload into the buffers, from byte `uOffset` on, and ends the frame. Throws
  /// JBufferSizeError, with the frame left where it is, when the buffers have no room for it. After any other
  /// failure the position in the stream is lost: every further read throws a JTextError.
  void takePayload(const JIoBuf* pBuffers, std::size_t uCount, std::uint32_t uOffset, std::uint32_t uSize);

 private:
  static constexpr std::size_t kLargestHeader = 24;

  /// The bytes of payload that a header claims. Throws JTextError when it is no header.
  virtual std::uint32_t parseHeader() const = 0;

  std::unique_ptr<JISocket> m_pInner;
  std::uint32_t m_uHeaderSize;
  ReadAhead m_ahead;
  std::array<std::uint8_t, kLargestHeader> m_header{};
  std::uint32_t m_uHeaderFilled = 0;
  bool m_bLost = false;  ///< a read failed inside a frame
};

}  // namespace qm_stream
