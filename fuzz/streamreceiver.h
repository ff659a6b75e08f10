#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmutils/error/jerror.h"

/// What the targets of the stream receivers share: a peer that is a block of bytes, and the frames that a
/// receiver takes from it.
namespace fuzz {

/// A connection that gives its bytes in pieces and then ends.
class BytesInput : public JISocket {
 public:
  BytesInput(std::string_view sBytes, std::size_t uPiece) : m_sBytes(sBytes), m_uPiece(uPiece) {}

  std::uint32_t* getTraceMask() const override { return nullptr; }
  const std::string& getName() const override { return m_sName; }
  bool isTraceEnabled(std::uint32_t) const override { return false; }
  void trace(const char*, ...) const override {}
  std::unique_ptr<JSockAddr> getLocalAddress() const override { return nullptr; }
  std::unique_ptr<JSockAddr> getRemoteAddress() const override { return nullptr; }
  void setReadTimeout(std::int32_t) override {}
  std::int32_t getReadTimeout() const override { return -1; }
  std::uint32_t getMTU() const override { return 1500; }
  std::string getProtocol() const override { return "tcp"; }
  void close() override {}
  void shutdownRead() override {}

  std::size_t read(void* pBuffer, std::size_t uLength) override {
    const std::size_t uPart = std::min({uLength, m_uPiece, m_sBytes.size()});
    std::memcpy(pBuffer, m_sBytes.data(), uPart);
    m_sBytes.remove_prefix(uPart);
    return uPart;
  }
  std::size_t readv(JIoBuf* pBuffers, std::size_t uCount) override {
    std::size_t uRead = 0;
    std::size_t uPiece = m_uPiece;
    for (std::size_t i = 0; i < uCount && uPiece != 0; ++i) {
      const std::size_t uPart = read(pBuffers[i].pBuf, std::min<std::size_t>(pBuffers[i].bufLength, uPiece));
      uRead += uPart;
      uPiece -= uPart;
    }
    return uRead;
  }

 private:
  std::string m_sName = "bytes";
  std::string_view m_sBytes;
  std::size_t m_uPiece;
};

/// The frames that a receiver takes from bytes, and behind them how that ended. `uInline` bytes of header
/// come with each.
template <typename Receiver>
std::vector<std::string> framesOf(std::string_view sBytes, std::size_t uPiece, std::uint32_t uInline) {
  Receiver receiver(std::make_unique<BytesInput>(sBytes, uPiece));
  std::vector<std::string> frames;
  try {
    for (;;) {
      const std::uint32_t uSize = receiver.getNextFrameSize();
      if (uSize > qm_stream::kMaxFrameSize) {
        std::abort();
      }
      // A frame that isn't there needs no room: a buffer of what is there shows how it is refused.
      std::string sFrame(std::min<std::size_t>(uInline + uSize, uInline + sBytes.size()), '\0');
      const std::size_t uFirst = uInline + (sFrame.size() - uInline) / 3;
      JIoBuf buffers[] = {{sFrame.data(), static_cast<std::uint32_t>(uFirst)},
                          {sFrame.data() + uFirst, static_cast<std::uint32_t>(sFrame.size() - uFirst)}};
      if (receiver.readv(buffers, 2) != uInline + uSize) {
        std::abort();
      }
      frames.push_back(sFrame);
      if (uSize == 0) {
        frames.emplace_back("end");
        return frames;
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    frames.push_back(error->getMessage());
  }
  return frames;
}

/// However the bytes are cut, the frames are the same.
template <typename Receiver>
void check(const std::uint8_t* pData, std::size_t uSize, std::uint32_t uInline) {
  const std::string_view sBytes(reinterpret_cast<const char*>(pData), uSize);
  const std::vector<std::string> frames = framesOf<Receiver>(sBytes, uSize + 1, uInline);
  for (const std::size_t uPiece : {1U, 7U, 25U}) {
    if (framesOf<Receiver>(sBytes, uPiece, uInline) != frames) {
      std::abort();
    }
  }
}

}  // namespace fuzz
