// A record whose bytes come from outside: every reading operation, then the writing ones on a record whose
// header and table were overwritten with them.
#include "coreapi/qmci/bitstream.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

unsigned touch(const std::uint8_t* pData, std::uint32_t nLength) {
  unsigned uSum = 0;
  for (std::uint32_t i = 0; pData != nullptr && i < nLength; ++i) {
    uSum += pData[i];
  }
  return uSum;
}

void readAll(const qm_ci::ConstBitstream& bitstream) {
  volatile unsigned uSum = 0;
  const int nPackets = bitstream.getNbPackets();
  for (int i = -1; i <= nPackets; ++i) {
    uSum = uSum + touch(bitstream.getPacketData(i), bitstream.getPacketLength(i));
    bitstream.getFreeSpace(i);
  }
  std::array<JIoBuf, 64> bufs;
  for (const int n :
       {bitstream.getIoBufs(bufs), bitstream.getIoBufs(bufs, 1U), bitstream.getIoBufs(bufs, 1, 2)}) {
    for (int i = 0; i < n; ++i) {
      const JIoBuf& buf = bufs[static_cast<std::size_t>(i)];
      uSum = uSum + touch(static_cast<const std::uint8_t*>(buf.pBuf), buf.bufLength);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < qm_ci::ConstBitstream::m_uMinQMCIBitstreamSize || size > 4096) {
    return 0;
  }
  std::vector<std::uint8_t> bytes(data, data + size);
  readAll(qm_ci::ConstBitstream(bytes.data(), static_cast<std::uint32_t>(size)));

  std::vector<std::uint8_t> block(size);
  qm_ci::Bitstream bitstream;
  bitstream.attach(block.data(), static_cast<std::uint32_t>(size));
  bitstream.setFormat(qm_ci::QMCI_FMT_PACKET, 2);
  bitstream.addExternalPacket("outside", 7, 1);
  std::memcpy(block.data(), bytes.data(), size);
  readAll(bitstream);
  for (std::size_t i = qm_ci::ConstBitstream::m_uMinQMCIBitstreamSize; i < size && i < 80; ++i) {
    const int iIndex = static_cast<int>(bytes[i] >> 4) - 1;
    switch (bytes[i] & 7) {
      case 0:
        bitstream.setPacketLength(bytes[i], iIndex);
        break;
      case 1:
        bitstream.setPacketData("0123456789abcdef", static_cast<std::uint32_t>(bytes[i] >> 4), 1);
        break;
      case 2:
        if (const qm_ci::PacketSpace space = bitstream.allocNextPacket(); space.pBuf != nullptr) {
          std::memset(space.pBuf, 0x5A, space.nLength);
        }
        break;
      case 3:
        bitstream.popPacket();
        break;
      case 4:
        bitstream.setPacket("outside", 7, iIndex);
        break;
      case 5: {
        qm_ci::Bitstream rest;
        bitstream.splitGroup(1, rest);
        readAll(rest);
        break;
      }
      case 6: {
        qm_ci::Bitstream copy;
        copy.setMaxSize(100, qm_ci::QMCI_FMT_PACKET, 1);
        copy.copyHeader(bitstream);
        copy.setPacketData("x", 1, 0);
        readAll(copy);
        break;
      }
      default:
        bitstream.addExternalPacket("outside", 7, 1);
        break;
    }
  }
  readAll(bitstream);

  if (qm_ci::ntoh(bytes.data())) {
    qm_ci::hton(bytes.data());
  }
  return 0;
}
