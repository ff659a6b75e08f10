#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmstream/oframesocket.h"
#include "coreapi/qmstream/rcpyheader.h"

namespace qm_stream {

/// Protocol id of the remote copy stream.
inline constexpr const char* kRemoteCopyProtocol = "QM_RCPY30";

/// Sends recorded frames over one connection, each behind a `RemoteCopyFrameHeader`. Of a record's own header
/// only what that one holds is sent.
class ORCPYSocket30 : public OFrameSocket {
 public:
  /// Throws JTextError without a connection, or for one that can't carry a header in a packet.
  explicit ORCPYSocket30(std::unique_ptr<JOSocket> pInner);
  ~ORCPYSocket30() override;

  std::string getProtocol() const override;

  using OFrameSocket::writev;

  /// Sends a frame. The first buffer starts with the header of its record, as many bytes as `dwHeaderLength`
  /// says, and may hold payload behind it; the others hold payload. Returns the payload's bytes plus 24; 0,
  /// and nothing is sent, for a frame of another kind than 0 and 6. A frame without payload reads as the end
  /// of the stream.
  ///
  /// Throws JBufferSizeError for a first buffer that is shorter than the header, a frame above
  /// `kMaxFrameSize` and more than 511 buffers.
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;
};

/// Receives what `ORCPYSocket30` sends.
class IRCPYSocket30 : public IFrameSocket {
 public:
  /// As for the sender; the mask may be null and stays the caller's.
  explicit IRCPYSocket30(std::unique_ptr<JISocket> pInner, std::uint32_t* pTraceMask = nullptr);

  std::string getProtocol() const override;

  /// Reads a frame: its 24 bytes of header at the start of the first buffer, the payload behind them and in
  /// the others. Returns the payload's bytes plus 24; 24 alone is the end of the stream. Reading is told in
  /// `IFrameSocket`; throws JBufferSizeError, with the frame left where it is, when the first buffer has no
  /// room for the header or all of them none for the payload.
  std::size_t readv(JIoBuf* pBuffers, std::size_t uCount) override;

 private:
  std::uint32_t parseHeader() const override;
};

/// Null, after a failed assertion, for a connection that isn't TCP; it is closed then. Throw what the
/// constructors throw.
std::unique_ptr<OFrameSocket> createORCPYSocket30(std::unique_ptr<JOSocket> pInner);
std::unique_ptr<IFrameSocket> createIRCPYSocket30(std::unique_ptr<JISocket> pInner,
                                                  std::uint32_t* pTraceMask);

}  // namespace qm_stream
