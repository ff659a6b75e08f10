#include "coreapi/qmci/bitstream.h"

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <memory>
#include <string>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/faultseam.h"
#include "coreapi/qmci/playrate.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "tests/coreapi/qmci/allocationcount.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/logcapture.h"

namespace qm_ci {
namespace {

using qm_platform::readLE32;
using qm_test::thrownBy;

std::string textOf(const JIoBuf& buf) {
  return {static_cast<const char*>(buf.pBuf), buf.bufLength};
}

struct AllocationCase {
  const char* name;
  std::uint32_t dwFormat;
  std::uint32_t uSize;
  std::uint32_t uCount;
  std::uint32_t uAllocated;
  std::uint32_t uHeaderLength;
  std::uint32_t uLeastForFormat;  ///< what setFormat needs; 0 when it changes nothing
};

class BitstreamAllocation : public testing::TestWithParam<AllocationCase> {};

TEST_P(BitstreamAllocation, GivesAFreshRecordOfTheFormatsSize) {
  Bitstream bitstream;
  bitstream.setMaxSize(GetParam().uSize, GetParam().dwFormat, GetParam().uCount);
  EXPECT_EQ(bitstream.getAllocatedSize(), GetParam().uAllocated);
  EXPECT_EQ(readLE32(bitstream.getConstQMCIBitstreamPtr() + 24), GetParam().uAllocated);
  EXPECT_EQ(bitstream.getFormat(), GetParam().dwFormat);
  EXPECT_EQ(bitstream.getHeaderLength(), GetParam().uHeaderLength);
  EXPECT_EQ(bitstream.getVersion(), 0x10000U);
  EXPECT_EQ(bitstream.getFormatVersion(), 1U);
  EXPECT_EQ(bitstream.getTimestamp(), 0U);
}

TEST_P(BitstreamAllocation, ChangesOnlyTheFormatOfABlockThatIsTooSmall) {
  const std::uint32_t uLeast = GetParam().uLeastForFormat;
  for (const std::uint32_t uBlock : {std::max(uLeast, 49U) - 1, std::max(uLeast, 48U)}) {
    Bitstream bitstream;
    bitstream.setMaxSize(uBlock, QMCI_FMT_NONE, 1);
    EXPECT_EQ(bitstream.setFormat(GetParam().dwFormat, GetParam().uCount), uBlock >= uLeast);
    EXPECT_EQ(bitstream.getFormat(), GetParam().dwFormat);
    const bool bChanged = uLeast != 0 && uBlock >= uLeast;
    EXPECT_EQ(bitstream.getHeaderLength(), bChanged ? 48U : 0U);
    EXPECT_EQ(bitstream.getFormatVersion(),
              bChanged && GetParam().dwFormat != QMCI_FMT_PACKET ? 0x10000U : 1U);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Formats, BitstreamAllocation,
    testing::Values(AllocationCase{"OnePacketNoData", QMCI_FMT_PACKET, 0, 1, 84, 48, 72},
                    AllocationCase{"Packets", QMCI_FMT_PACKET, 1000, 5, 1132, 48, 120},
                    AllocationCase{"Substreams", QMCI_FMT_SUBSTREAM, 1000, 5, 1104, 48, 96},
                    AllocationCase{"Linear", QMCI_FMT_LINEAR, 1000, 5, 1064, 48, 64},
                    AllocationCase{"Chunk", QMCI_FMT_CHUNK, 1000, 0xFFFFFFFF, 1080, 48, 0},
                    AllocationCase{"None", QMCI_FMT_NONE, 48, 1, 48, 0, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Bitstream, RefusesImpossibleAllocations) {
  Bitstream bitstream;
  bitstream.setMaxSize(100, QMCI_FMT_PACKET, 1);
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(100, fourcc("XXXX"), 1); }), "unknwon format");
  EXPECT_EQ(bitstream.getAllocatedSize(), 0U) << "the old record was freed first";
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(47, QMCI_FMT_NONE, 1); }),
            "allocated size smaller than header");
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(100, QMCI_FMT_PACKET, 0); }),
            "allocated size smaller than header");
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(0xFFFFFFFF, QMCI_FMT_PACKET, 0xFFFFFFFF); }),
            "out of memory");
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(0, QMCI_FMT_PACKET, 0x15555550); }), "out of memory")
      << "12 times the count passes 32 bits";
#ifdef QM_FAULT_SEAMS
  qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kAllocation), 1});
  EXPECT_EQ(thrownBy([&] { bitstream.setMaxSize(100, QMCI_FMT_LINEAR, 0); }), "out of memory");
  EXPECT_TRUE(qm_platform::disarmFaults());
#endif
}

TEST(Bitstream, ResetKeepsTheSizeOfTheRecordAlone) {
  Bitstream bitstream;
  bitstream.setMaxSize(64, QMCI_FMT_NONE, 1);
  bitstream.setTimestamp(0x0102030405060708);
  bitstream.setVersion(0x55667788);
  bitstream.setFormatVersion(0x99AABBCC);
  bitstream.setAllocatedSize(60);
  bitstream.setHeaderLength(52);
  bitstream.setFrameExtra(0x0A0B0C0D);
  const ConstBitstream view(bitstream.getConstQMCIBitstreamPtr(), 64);
  bitstream.reset();
  EXPECT_EQ(view.getTimestamp(), 0U);
  EXPECT_EQ(view.getFormat(), QMCI_FMT_NONE);
  EXPECT_EQ(view.getVersion(), 0x10000U);
  EXPECT_EQ(view.getFormatVersion(), 1U);
  EXPECT_EQ(view.getAllocatedSize(), 60U);
  EXPECT_EQ(view.getHeaderLength(), 48U);
  EXPECT_EQ(view.getFrameNumber(), 0xFFFFFFFFU);
  EXPECT_EQ(view.getFrameExtra(), 0U);
}

TEST(Bitstream, NetworkFormIsTheHeaderInBigEndian) {
  std::array<std::uint8_t, 48> record{};
  for (std::size_t i = 0; i < record.size(); ++i) {
    record[i] = static_cast<std::uint8_t>(i);
  }
  qm_platform::writeLE32(record.data() + 16, 0x10001);
  ASSERT_TRUE(hton(record.data()));
  EXPECT_THAT(record, testing::ElementsAre(7, 6, 5, 4, 3, 2, 1, 0, 9, 8, 11, 10, 15, 14, 13, 12,        //
                                           0, 1, 0, 0, 23, 22, 21, 20, 24, 25, 26, 27, 31, 30, 29, 28,  //
                                           39, 38, 37, 36, 35, 34, 33, 32, 43, 42, 41, 40, 47, 46, 45, 44));
  record[19] = 1;  // a later minor version of the peer
  ASSERT_TRUE(ntoh(record.data()));
  EXPECT_EQ(readLE32(record.data() + 16), 0x10000U);
  EXPECT_EQ(readLE32(record.data() + 40), 0x2B2A2928U);

  qm_platform::writeLE32(record.data() + 16, 0x20000);
  const auto before = record;
  EXPECT_FALSE(hton(record.data()));
  EXPECT_EQ(record, before);
  qm_platform::writeBE32(record.data() + 16, 0);
  EXPECT_FALSE(ntoh(record.data()));
}

TEST(Bitstream, PacketsInsideAndOutsideComeBackInOrder) {
  const std::string sOutside = "outside";
  Bitstream bitstream;
  bitstream.setMaxSize(20, QMCI_FMT_PACKET, 4);
  ASSERT_TRUE(bitstream.setPacketData("first", 5, 1));
  ASSERT_TRUE(bitstream.addExternalPacket(sOutside.data(), 7, 2));
  ASSERT_TRUE(bitstream.setPacketData(nullptr, 3, 2));
  EXPECT_EQ(bitstream.getNbPackets(), 3);
  EXPECT_EQ(bitstream.getPacket(1).pBuf, reinterpret_cast<const std::uint8_t*>(sOutside.data()));
  EXPECT_EQ(bitstream.getPacketData(0), bitstream.getConstQMCIBitstreamPtr() + (3 * 4 + 15) * 4);
  EXPECT_EQ(bitstream.getPacketData(2), bitstream.getPacketData(0) + 5);
  EXPECT_EQ(bitstream.getFreeSpace(0), 5) << "up to the next packet inside";
  EXPECT_EQ(bitstream.getFreeSpace(1), -1);
  EXPECT_EQ(bitstream.getFreeSpace(2), 12 + 20 - 5);
  EXPECT_EQ(bitstream.getPacketCountInGroup(2), 2);
  EXPECT_EQ(bitstream.getPacketCountInGroup(9), 0);

  std::array<JIoBuf, 4> bufs;
  EXPECT_EQ(bitstream.getIoBufs(bufs), 3);
  EXPECT_EQ(textOf(bufs[0]), "first");
  EXPECT_EQ(textOf(bufs[1]), "outside");
  EXPECT_EQ(bufs[2].bufLength, 3U);
  EXPECT_EQ(bitstream.getIoBufs(bufs, 1U), 1);
  EXPECT_EQ(bitstream.getIoBufs(bufs, 2U), 2);
  EXPECT_EQ(textOf(bufs[0]), "outside");
  EXPECT_EQ(bitstream.getIoBufs(bufs, 9U), 0);
  EXPECT_EQ(bitstream.getIoBufs(bufs, 1, 2), 1);
  EXPECT_EQ(bitstream.getIoBufs(bufs, 0, 2), 2);
  EXPECT_EQ(bitstream.getIoBufs(bufs, 3, 1), 0);
  EXPECT_EQ(bitstream.getIoBufs({bufs.data(), 2}), -1) << "no room for all of them";

  EXPECT_TRUE(bitstream.setPacket(sOutside.data(), 3, 0));
  EXPECT_EQ(bitstream.getPacketLength(0), 3U);
  EXPECT_EQ(bitstream.getPacket(0).dwGroup, 1U);
  EXPECT_FALSE(bitstream.setPacketLength(1, 0)) << "only packets inside can be cut";
}

TEST(Bitstream, ReaderFillsTheRoomLeftAndThenCutsIt) {
  Bitstream bitstream;
  bitstream.setMaxSize(100, QMCI_FMT_PACKET, 2);
  const PacketSpace space = bitstream.allocNextPacket();
  ASSERT_NE(space.pBuf, nullptr);
  EXPECT_EQ(space.nLength, 112U);
  EXPECT_FALSE(bitstream.setPacketLength(113, -1));
  EXPECT_TRUE(bitstream.setPacketLength(40, -1));
  EXPECT_FALSE(bitstream.setPacketLength(1, 1)) << "beyond the count";
  EXPECT_EQ(bitstream.allocNextPacket().pBuf, space.pBuf + 40) << "the cursor follows the last packet";
  EXPECT_TRUE(bitstream.popPacket());
  EXPECT_FALSE(bitstream.setPacketData(nullptr, 73, 0));
  EXPECT_TRUE(bitstream.setPacketData(nullptr, 72, 0));
  EXPECT_TRUE(bitstream.popPacket());
  EXPECT_TRUE(bitstream.popPacket());
  EXPECT_EQ(bitstream.allocNextPacket().pBuf, space.pBuf) << "back at the start of the data area";

  const qm_test::LogCapture log;
  EXPECT_EQ(bitstream.allocNextPacket().pBuf, nullptr);
  EXPECT_TRUE(log.has(11, "ASSERTION FAILED (NULL!=sRet.pBuf)"));
}

TEST(Bitstream, CopiesAtMostItsOwnHeader) {
  std::array<std::uint8_t, 100> block{};
  Bitstream peer;
  peer.attach(block.data(), 100);
  peer.setTimestamp(77);
  peer.setFrameExtra(5);
  peer.setVersion(0x10005);
  peer.setFormat(QMCI_FMT_PACKET, 1);
  std::fill(block.begin() + 48, block.end(), 0xEE);
  Bitstream ours;
  ours.setMaxSize(100, QMCI_FMT_PACKET, 1);
  ASSERT_TRUE(ours.setPacketData("payload", 7, 0));

  peer.setHeaderLength(100);
  ASSERT_TRUE(ours.copyHeader(peer));
  EXPECT_EQ(ours.getTimestamp(), 77U);
  EXPECT_EQ(ours.getFrameExtra(), 5U);
  EXPECT_EQ(ours.getVersion(), 0x10000U);
  EXPECT_EQ(ours.getAllocatedSize(), 184U);
  EXPECT_EQ(ours.getHeaderLength(), 48U);
  EXPECT_EQ(ours.getNbPackets(), 1);
  EXPECT_EQ(std::memcmp(ours.getPacketData(0), "payload", 7), 0);

  peer.setHeaderLength(44);
  ASSERT_TRUE(ours.copyHeader(peer));
  EXPECT_EQ(ours.getFrameExtra(), 0U) << "what a shorter header doesn't have is cleared";
  peer.setHeaderLength(185);
  EXPECT_FALSE(ours.copyHeader(peer));
}

TEST(Bitstream, SplitsBehindAGroup) {
  Bitstream bitstream;
  bitstream.setMaxSize(100, QMCI_FMT_PACKET, 4);
  bitstream.setTimestamp(9);
  bitstream.setPacketData("one", 3, 1);
  bitstream.setPacketData("two", 3, 1);
  bitstream.addExternalPacket("three", 5, 2);
  bitstream.setPacketData("four", 4, 3);
  Bitstream rest;
  EXPECT_FALSE(bitstream.splitGroup(3, rest)) << "nothing follows";
  EXPECT_FALSE(bitstream.splitGroup(4, rest)) << "no such group";
  ASSERT_TRUE(bitstream.splitGroup(1, rest));
  std::array<JIoBuf, 4> bufs;
  ASSERT_EQ(bitstream.getIoBufs(bufs), 2);
  EXPECT_EQ(textOf(bufs[1]), "two");
  ASSERT_EQ(rest.getIoBufs(bufs), 2);
  EXPECT_EQ(textOf(bufs[0]), "three");
  EXPECT_EQ(textOf(bufs[1]), "four");
  EXPECT_EQ(rest.getTimestamp(), 9U);
}

TEST(Bitstream, DetachesWhatItOwns) {
  Bitstream bitstream;
  bitstream.setMaxSize(10, QMCI_FMT_PACKET, 1);
  bitstream.setPacketData("abc", 3, 0);
  const std::uint32_t uSize = bitstream.getAllocatedSize();
  const std::unique_ptr<QMCIBitstream[]> pRecord(bitstream.detach());
  EXPECT_EQ(bitstream.getConstQMCIBitstreamPtr(), nullptr);
  EXPECT_EQ(bitstream.getAllocatedSize(), 0U);
  EXPECT_EQ(ConstBitstream(pRecord.get(), uSize).getPacketLength(0), 3U);
}

TEST(Bitstream, FramePathNeverAllocates) {
  const std::string sPayload(1000, 'p');
  std::array<JIoBuf, 3> bufs;
  Bitstream header;
  header.setMaxSize(100, QMCI_FMT_NONE, 1);
  Bitstream frame;
  frame.setMaxSize(4096, QMCI_FMT_NONE, 3);
  const std::size_t nBefore = qm_test::allocationCount();
  for (std::uint64_t number = 0; number < 3; ++number) {
    header.reset();
    ASSERT_TRUE(header.setFormat(QMCI_FMT_PACKET, 1));
    header.setFrameNumber(number);
    ASSERT_TRUE(hton(header.getQMCIBitstreamPtr()) && ntoh(header.getQMCIBitstreamPtr()));
    ASSERT_TRUE(frame.setFormat(QMCI_FMT_PACKET, 3));
    const PacketSpace space = frame.allocNextPacket();
    std::memcpy(space.pBuf, sPayload.data(), sPayload.size());
    ASSERT_TRUE(frame.copyHeader(header) && frame.setPacketLength(1000, -1));
    ASSERT_TRUE(frame.setPacketData(sPayload.data(), 1000, 1));
    ASSERT_TRUE(frame.addExternalPacket(sPayload.data(), 1000, 2));
    ASSERT_TRUE(frame.setPacket(sPayload.data(), 10, 0));
    ASSERT_EQ(frame.getIoBufs(bufs), 3);
    ASSERT_EQ(frame.getIoBufs(bufs, 1U), 1);
    ASSERT_TRUE(frame.popPacket());
    ASSERT_EQ(frame.getFrameNumber(), number);
  }
  EXPECT_EQ(qm_test::allocationCount(), nBefore);
}

TEST(PlayRate, ConvertsBetweenFrameAndPlayTime) {
  Bitstream frame;
  frame.setMaxSize(48, QMCI_FMT_NONE, 1);
  frame.setTimestamp(1000000);
  frame.setDecoderPipe(1);
  QMVideoInfoNoXml info;
  info.setDecoderPipe(3);
  info.setPictureRate(25, 1);
  const QMCIVideoInfo video(info.getCIInfo());  // the pipe counts for two pictures of 40 ms
  EXPECT_EQ(PlayRate(1).toPlayTime(frame, video, 5), 1080005U);
  EXPECT_EQ(PlayRate(0.5).toPlayTime(frame, video, 0), 540000U);
  EXPECT_EQ(PlayRate(0.0079).toPlayTime(frame, video, 0), 16875U) << "rounds up to one 64th";
  EXPECT_EQ(PlayRate(2).toOffset(frame, video, 1000000), 2000000U - 1080000U);
  frame.setDecoderPipe(4);
  EXPECT_EQ(PlayRate(1).toPlayTime(frame, video, 0), 960000U) << "a pipe that was fuller gives it earlier";
  QMVideoInfoNoXml noRate;
  noRate.setPictureRate(0, 1);
  EXPECT_EQ(PlayRate(1).toPlayTime(frame, QMCIVideoInfo(noRate.getCIInfo()), 0), 1000000U);
  for (const double rate : {0.0, 0.007, -1.0, 1e30, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(thrownBy([&] { PlayRate{rate}; }), "invalid play rate") << rate;
  }
}

}  // namespace
}  // namespace qm_ci
