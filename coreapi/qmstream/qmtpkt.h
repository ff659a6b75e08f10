#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmstream/oframesocket.h"
#include "coreapi/qmstream/tpktheader.h"

namespace qm_stream {

/// Protocol id of the TPKT stream.
inline constexpr const char* kTpktProtocol = "QM_TPKT";

/// Sends frames as they are, each behind a `TPKT` header. It doesn't look into them; a copy sends the header
/// of the record in network order and the payload.
class OTPKTSocket : public OFrameSocket {
 public:
  /// Throws JTextError without a connection, or for one that can't carry a header in a packet.
  explicit OTPKTSocket(std::unique_ptr<JOSocket> pInner);
  ~OTPKTSocket() override;

  std::string getProtocol() const override;

  using OFrameSocket::writev;

  /// Sends a frame and returns its bytes plus 8. One without bytes reads as the end of the stream. Throws
  /// JBufferSizeError for a frame above `kMaxFrameSize` and for more than 511 buffers.
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;
};

/// Receives what `OTPKTSocket` sends.
class ITPKTSocket : public IFrameSocket {
 public:
  /// As for the sender; the mask may be null and stays the caller's.
  explicit ITPKTSocket(std::unique_ptr<JISocket> pInner, std::uint32_t* pTraceMask = nullptr);

  std::string getProtocol() const override;

  /// Reads a frame, without its header, and returns its bytes; 0 is the end of the stream. The buffer in
  /// which the frame ends is shortened to it in the caller's array. Reading is told in `IFrameSocket`; throws
  /// JTextError "invalid QMTPKT version!", and JBufferSizeError, with the frame left where it is, when the
  /// buffers have no room for it.
  std::size_t readv(JIoBuf* pBuffers, std::size_t uCount) override;

 private:
  std::uint32_t parseHeader() const override;
};

}  // namespace qm_stream
