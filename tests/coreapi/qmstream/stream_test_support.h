#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/qmtpkt.h"
#include "coreapi/qmstream/streamfactory.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace qm_test {

/// What the two protocols differ in.
struct Framing {
  const char* szId;
  std::uint32_t uInline;  ///< bytes of header that a read gives with the frame

  std::string header(std::uint32_t uSize) const {
    if (uInline == 0) {
      const qm_stream::TPKT tpkt(uSize);
      return {reinterpret_cast<const char*>(tpkt.data()), qm_stream::TPKT::kSize};
    }
    qm_stream::RemoteCopyFrameHeader copy;
    copy.setFrameSize(uSize);
    return {reinterpret_cast<const char*>(copy.data()), qm_stream::RemoteCopyFrameHeader::kSize};
  }
  std::string wire(const std::string& sPayload) const {
    return header(static_cast<std::uint32_t>(sPayload.size())) + sPayload;
  }
};

inline constexpr Framing kFramings[] = {{"QM_RCPY30", 24}, {"QM_TPKT", 0}};

/// A connection with a receiver of a protocol at its accepted end; the other end is the test's.
struct Receiving {
  explicit Receiving(const Framing& framing, std::int32_t iTimeout = 60'000)
      : pReceiver(qm_stream::findProtocol(framing.szId)
                      ->createISocket(std::move(connection.pServer), nullptr, "", nullptr, "x")) {
    pReceiver->setReadTimeout(iTimeout);
  }

  void send(const std::string& sBytes) { connection.client.write(sBytes.data(), sBytes.size()); }

  Connection connection;
  std::unique_ptr<qm_stream::IFrameSocket> pReceiver;
};

/// The payload of the next frame, or "end".
inline std::string readFrame(const Framing& framing, qm_stream::IFrameSocket& receiver) {
  const std::uint32_t uSize = receiver.getNextFrameSize();
  std::string sHeader(framing.uInline, '\0');
  std::string sPayload(uSize, '\0');
  JIoBuf buffers[] = {{sHeader.data(), framing.uInline}, {sPayload.data(), uSize}};
  const std::size_t uFirst = framing.uInline == 0 ? 1 : 0;
  EXPECT_EQ(receiver.readv(buffers + uFirst, 2 - uFirst), framing.uInline + uSize);
  EXPECT_EQ(sHeader, framing.header(uSize).substr(0, framing.uInline));
  return uSize == 0 ? "end" : sPayload;
}

/// Bytes that tell their place.
inline std::string pattern(std::size_t uSize) {
  std::string sBytes(uSize, '\0');
  for (std::size_t i = 0; i < uSize; ++i) {
    sBytes[i] = static_cast<char>((i * 2654435761U) >> 13);
  }
  return sBytes;
}

}  // namespace qm_test
