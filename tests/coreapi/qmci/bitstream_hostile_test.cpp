#include <array>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/bitstream.h"
#include "tests/support/logcapture.h"

namespace qm_ci {
namespace {

using qm_platform::writeLE32;
using qm_test::LogCapture;

/// A record as it may come from outside: 160 bytes, format, header length, allocated size and table words as
/// the row says.
struct HostileCase {
  const char* name;
  std::uint32_t dwFormat;
  std::vector<std::uint32_t> words;  ///< from offset 48
  int nPackets;                      ///< what getNbPackets must say
  std::uint32_t dwAllocatedSize = 160;
  std::uint32_t dwHeaderLength = 48;
};

class HostileRecord : public testing::TestWithParam<HostileCase> {
 protected:
  /// On the heap, so that the sanitizer sees a byte too much.
  std::vector<std::uint8_t> record() const {
    std::vector<std::uint8_t> bytes(160);
    writeLE32(&bytes[12], GetParam().dwFormat);
    writeLE32(&bytes[24], GetParam().dwAllocatedSize);
    writeLE32(&bytes[28], GetParam().dwHeaderLength);
    for (std::size_t i = 0; i < GetParam().words.size(); ++i) {
      writeLE32(&bytes[48 + 4 * i], GetParam().words[i]);
    }
    return bytes;
  }
};

TEST_P(HostileRecord, GivesNoBytesOutsideItself) {
  const LogCapture log;
  const std::vector<std::uint8_t> bytes = record();
  const ConstBitstream view(bytes.data(), 160);
  EXPECT_EQ(view.getNbPackets(), GetParam().nPackets);
  for (int i : {-1, 0, 1, 2, 1000000, 0x7FFFFFFF}) {
    EXPECT_EQ(view.getPacketData(i), nullptr) << i;
    EXPECT_EQ(view.getPacketLength(i), 0U) << i;
    EXPECT_LE(view.getFreeSpace(i), 112);
  }
  std::array<JIoBuf, 4> bufs;
  EXPECT_LE(view.getIoBufs(bufs), 0);
  EXPECT_LE(view.getIoBufs(bufs, 0U), 0);
  EXPECT_FALSE(log.messages().empty()) << "what is refused is logged";
}

TEST_P(HostileRecord, TakesNoPacketsOutsideItself) {
  const LogCapture log;
  // The same bytes get into a record that was set up here, as a careless reader of the wire would do it.
  const std::vector<std::uint8_t> bytes = record();
  std::vector<std::uint8_t> block(160);
  Bitstream bitstream;
  bitstream.attach(block.data(), 160);
  ASSERT_TRUE(bitstream.setFormat(QMCI_FMT_PACKET, 3));
  std::copy(bytes.begin(), bytes.end(), block.begin());
  Bitstream rest;
  bitstream.splitGroup(0, rest);
  bitstream.setPacketLength(100, -1);
  bitstream.setPacketLength(0, 0);
  bitstream.setPacketData(nullptr, 10, 0);
  bitstream.setPacketData("0123456789", 10, 0);
  bitstream.allocNextPacket();
  bitstream.addExternalPacket("x", 1, 0);
  bitstream.setPacket("x", 1, 2);
  bitstream.popPacket();
  bitstream.popPacket();
  const PacketSpace space = bitstream.allocNextPacket();
  if (space.pBuf != nullptr) {
    EXPECT_GE(space.pBuf, block.data() + 96);
    EXPECT_LE(space.pBuf + space.nLength, block.data() + 160);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Bitstream, HostileRecord,
    testing::Values(HostileCase{"CountBeyondBlock", QMCI_FMT_PACKET, {9, 0, 100, 4}, -1},
                    HostileCase{"CountOf32Bits", QMCI_FMT_PACKET, {0xFFFFFFFF, 0, 100, 4}, -1},
                    HostileCase{"CountThatWrapsTimesTwelve", QMCI_FMT_PACKET, {0x55555556, 0, 100, 4}, -1},
                    HostileCase{"PlaceBeyondBlock", QMCI_FMT_PACKET, {1, 0, 161, 0}, 1},
                    HostileCase{"PlaceInTable", QMCI_FMT_PACKET, {1, 0, 56, 4}, 1},
                    HostileCase{"NullPlace", QMCI_FMT_PACKET, {1, 0, 0, 4}, 1},
                    HostileCase{"LengthBeyondBlock", QMCI_FMT_PACKET, {1, 0, 100, 61}, 1},
                    HostileCase{"LengthThatWraps", QMCI_FMT_PACKET, {1, 0, 100, 0xFFFFFFFF}, 1},
                    HostileCase{"ForeignExternal", QMCI_FMT_PACKET, {1, 0, 0x80000000, 4}, 1},
                    HostileCase{"ForeignExternalFar", QMCI_FMT_PACKET, {1, 0, 0xFFFFFFFF, 4}, 1},
                    HostileCase{"AllocatedSizeTooLarge", QMCI_FMT_PACKET, {1, 0, 200, 4}, 1, 0xFFFFFFFF},
                    HostileCase{"AllocatedSizeTooSmall", QMCI_FMT_PACKET, {1, 0, 100, 4}, -1, 50},
                    HostileCase{"SubstreamCount", QMCI_FMT_SUBSTREAM, {0x20000001, 0, 100, 4}, -1},
                    HostileCase{"SubstreamBeyondBlock", QMCI_FMT_SUBSTREAM, {1, 0, 150, 11}, 1},
                    HostileCase{"SubstreamInHeader", QMCI_FMT_SUBSTREAM, {1, 0, 8, 4}, 1},
                    HostileCase{"SubstreamFar", QMCI_FMT_SUBSTREAM, {1, 0, 0xFFFFFFFF, 0xFFFFFFFF}, 1},
                    HostileCase{"LongLinearHeader", QMCI_FMT_LINEAR, {0, 0}, -1, 160, 0xFFFFFFFF},
                    HostileCase{"UnknownFormat", fourcc("ABCD"), {1, 0, 100, 4}, -1}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Bitstream, ExternalPacketNeverGrowsByItsRecord) {
  const LogCapture log;
  Bitstream bitstream;
  bitstream.setMaxSize(10, QMCI_FMT_PACKET, 1);
  ASSERT_TRUE(bitstream.addExternalPacket("abc", 3, 0));
  writeLE32(bitstream.getQMCIBitstreamPtr() + 60, 4);
  EXPECT_EQ(bitstream.getPacketData(0), nullptr);
  writeLE32(bitstream.getQMCIBitstreamPtr() + 60, 3);
  EXPECT_NE(bitstream.getPacketData(0), nullptr);
  ASSERT_TRUE(bitstream.setFormat(QMCI_FMT_PACKET, 1));
  writeLE32(bitstream.getQMCIBitstreamPtr() + 48, 1);
  EXPECT_EQ(bitstream.getPacketData(0), nullptr) << "an address of the last frame is forgotten";
}

struct AssertionCase {
  const char* name;
  std::function<bool(Bitstream&)> refused;
  const char* text;
  std::uint32_t dwFormat = QMCI_FMT_PACKET;
};

TEST(BitstreamMisuse, IsLoggedAndRefused) {
  const AssertionCase rows[] = {
      {"CountOfLinear", [](Bitstream& b) { return b.getNbPackets() == -1; },
       "m_psConstCIStream->dwFormat==QMCI_FMT_PACKET || "
       "m_psConstCIStream->dwFormat==QMCI_FMT_SUBSTREAM",
       QMCI_FMT_LINEAR},
      {"AddToLinear", [](Bitstream& b) { return !b.setPacketData("x", 1, 0); },
       "m_psConstCIStream->dwFormat==QMCI_FMT_PACKET", QMCI_FMT_LINEAR},
      {"SplitSubstreams",
       [](Bitstream& b) {
         Bitstream rest;
         return !b.splitGroup(1, rest);
       },
       "m_psConstCIStream->dwFormat==QMCI_FMT_PACKET", QMCI_FMT_SUBSTREAM},
      {"OwnBytesAsExternal",
       [](Bitstream& b) {
         return !b.addExternalPacket(b.getQMCIBitstreamPtr() + b.getAllocatedSize() - 1, 1, 0);
       },
       "isDataExternal(pBuf)"},
      {"NullAsExternal", [](Bitstream& b) { return !b.addExternalPacket(nullptr, 1, 0); },
       "isDataExternal(pBuf)"},
      {"OwnBytesCopied", [](Bitstream& b) { return !b.setPacketData(b.getQMCIBitstreamPtr(), 1, 0); },
       "pBuf==0 || isDataExternal(pBuf)"},
      {"TableFull", [](Bitstream& b) { return b.setPacketData("x", 1, 0) && !b.setPacketData("x", 1, 0); },
       "pPacketData->dwNumPackets<m_dwAllocatedPacket"},
      {"LengthOfNoPacket", [](Bitstream& b) { return !b.setPacketLength(0, -1); }, "iIdx>=0"},
      {"PopOfNoPacket", [](Bitstream& b) { return !b.popPacket(); }, "pPacketData->dwNumPackets>0"},
      {"Stride", [](Bitstream& b) { return b.getIoBufs({}, 0, 0) == -1; }, "iOff >= 0 && iStep >= 1"},
      {"ShortBlock",
       [](Bitstream& b) {
         std::array<std::uint8_t, 47> block;
         block.fill(1);
         b.attach(block.data(), 47);
         return b.getConstQMCIBitstreamPtr() == nullptr && block[46] == 0;
       },
       "uAllocatedSize >= sizeof(QMCIBitstream)"}};
  for (const AssertionCase& row : rows) {
    SCOPED_TRACE(row.name);
    const LogCapture log;
    Bitstream bitstream;
    bitstream.setMaxSize(100, row.dwFormat, 1);
    EXPECT_TRUE(row.refused(bitstream));
    EXPECT_TRUE(log.has(11, std::string("ASSERTION FAILED (") + row.text + ")"));
  }
}

}  // namespace
}  // namespace qm_ci
