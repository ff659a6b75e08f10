#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/jtraceableobject.h"
#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_stream {

/// The sending end of a framed stream: one frame a `writev`. It owns the connection that it wraps. Its
/// destruction sends the marker that ends the stream and waits until the reader has closed, at most
/// `kEndWaitMilliseconds`: closing a connection resets it, and what the reader hasn't read would be lost.
///
/// A stream that failed inside a frame, or was abandoned, isn't ended: the reader sees a connection that
/// breaks off.
///
/// Where not told otherwise an operation is the connection's own. One thread.
class OFrameSocket : public JOSocket, public JTraceableObject {
 public:
  /// How long the end of a stream waits for its reader.
  static constexpr std::int32_t kEndWaitMilliseconds = 10'000;

  /// Frames that are worth being copied rather than sent in a call of their own, and how much goes out then.
  static constexpr std::size_t kGatheredFrame = std::size_t{8} * 1024;
  static constexpr std::size_t kGatheredBytes = std::size_t{64} * 1024;

  ~OFrameSocket() override;

  std::uint32_t* getTraceMask() const override;
  const std::string& getName() const override;
  bool isTraceEnabled(std::uint32_t uBits) const override;
  [[gnu::format(printf, 2, 3)]] void trace(const char* szFormat, ...) const override;

  std::unique_ptr<JSockAddr> getLocalAddress() const override;
  std::unique_ptr<JSockAddr> getRemoteAddress() const override;
  void setWriteTimeout(std::int32_t iMilliseconds) override;
  std::int32_t getWriteTimeout() const override;
  const JTime& getTimeOrigin() const override;

  /// What the connection carries in one packet, less the header.
  std::uint32_t getMTU() const override;
  std::uint32_t getHeaderSize() const override;

  /// No effect: the destruction ends the writing side, behind the marker.
  void shutdownWrite() override;

  using JOSocket::write;
  using JOSocket::writev;

  /// `writev` of one buffer.
  std::size_t write(const void* pBuffer, std::size_t uLength) override;

  /// From now on frames of up to `kGatheredFrame` bytes, header included, are kept until `kGatheredBytes` are
  /// together, a larger frame comes or the stream ends, and then go out in one call: for a sender of small
  /// frames that doesn't pause. They count as sent, and a failure to send them is thrown by a later call.
  void gatherSmallFrames();

  /// Sends what is kept. Throws what the connection throws.
  void flush();

  /// Gives the stream up: it ends without its marker, so that the reader takes it for broken off. For a
  /// sender that can't go on with what it has promised.
  void abandon() noexcept { m_bWhole = false; }

 protected:
  /// Throws JTextError `szError` when there is no connection or its packets have no room for a header.
  OFrameSocket(std::unique_ptr<JOSocket> pInner, const char* szNamePrefix, std::uint32_t uHeaderSize,
               const char* szError);

  /// Writes a frame: `uTotal` bytes in all, the header included. Returns what the connection took.
  std::size_t send(const JIoBuf* pBuffers, std::size_t uCount, std::uint64_t uTotal);

  /// Ends the stream; the first thing that the destructor of a protocol does. `pMarker` is a header.
  void endStream(const void* pMarker) noexcept;

 private:
  std::size_t sendBehindKept(const JIoBuf* pBuffers, std::size_t uCount);
  void waitForReader() noexcept;

  std::unique_ptr<JOSocket> m_pInner;
  std::uint32_t m_uHeaderSize;
  bool m_bWhole = true;  ///< every frame went out whole
  bool m_bGathering = false;
  std::vector<std::uint8_t> m_kept;  ///< small frames
};

}  // namespace qm_stream
