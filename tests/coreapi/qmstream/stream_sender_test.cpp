#include <array>
#include <thread>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmutils/socket/judpsocket.h"
#include "tests/coreapi/qmstream/stream_test_support.h"

namespace {

using qm_test::Connection;
using qm_test::Framing;
using qm_test::kFramings;
using qm_test::LogLines;
using qm_test::pattern;
using qm_test::readFrame;
using qm_test::thrownBy;

/// A connection with a sender at the end that was made here, whose close resets it.
struct Sending {
  Sending() {
    auto pClient = std::make_unique<JTCPSocket>();
    pClient->connect(qm_test::loopback(listener.getLocalPort()));
    pInner = std::move(pClient);
    pPeer = listener.accept();
    pPeer->setReadTimeout(60'000);
  }

  std::unique_ptr<qm_stream::OFrameSocket> sender(const char* szId) {
    return qm_stream::findProtocol(szId)->createOSocket(std::move(pInner), "");
  }
  std::string read(std::size_t uSize) const {
    std::string sBytes(uSize, '\0');
    std::size_t uRead = 0;
    for (std::size_t uPart = 1; uPart != 0 && uRead < uSize; uRead += uPart) {
      uPart = pPeer->read(sBytes.data() + uRead, uSize - uRead);
    }
    return sBytes.substr(0, uRead);
  }

  JTCPSocket listener{std::uint16_t{0}};
  std::unique_ptr<JTCPSocket> pInner;
  std::unique_ptr<JSocket> pPeer;
};

TEST(StreamSender, SendsTheHeaderOfARemoteCopy) {
  struct {
    const char* name;
    std::uint64_t ullFrameNumber;
    std::uint16_t wAccessFlags;
    std::uint16_t wPictureType;
    std::string sNumberAndFlags;  ///< empty when nothing is sent
  } const rows[] = {
      {"no frame kind", 0x01020304, 0, 0, std::string("\4\3\2\1\3\0\0\0\0\0\0\0\0\0\0\0", 16)},
      {"access point", 1, 3, 0x60, std::string("\1\0\0\0\3\0\0\0\0\0\0\x80\0\0\0\0", 16)},
      {"one low bit", 1, 2, 0, std::string("\1\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0", 16)},
      {"authentication", 1, 11, 6, std::string("\1\0\0\0\3\0\0\0\0\0\0\xA0\0\0\0\0", 16)},
      {"largest number of 32 bits", 0xFFFFFFFF, 0, 0, std::string("\0\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0", 16)},
      {"beyond 32 bits", 0x100000000, 0, 0, std::string("\1\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0", 16)},
      {"another kind", 1, 0, 1, ""},
      {"a description", 1, 0, 5, ""},
  };
  Sending stream;
  auto pSender = stream.sender("QM_RCPY30");
  for (const auto& row : rows) {
    for (const std::size_t uInFirst : {0, 1, 3}) {
      SCOPED_TRACE(row.name + std::string(", payload beside the header: ") + std::to_string(uInFirst));
      std::array<std::uint8_t, 51> record{};
      qm_ci::Bitstream oBs;
      oBs.attach(record.data(), 48);
      ASSERT_TRUE(!oBs.setFormat(qm_ci::QMCI_FMT_PACKET, 1));  // no table: only the header is of use
      oBs.setTimestamp(0x0807060504030201);
      oBs.setFrameNumber(row.ullFrameNumber);
      oBs.setAccessFlags(row.wAccessFlags);
      oBs.setPictureType(row.wPictureType);
      std::memcpy(&record[48], "abc", 3);
      const JIoBuf frame[] = {{record.data(), static_cast<std::uint32_t>(48 + uInFirst)},
                              {&record[48 + uInFirst], static_cast<std::uint32_t>(3 - uInFirst)}};
      const std::string sWanted =
          row.sNumberAndFlags.empty() ? "" : "\1\2\3\4\5\6\7\b" + row.sNumberAndFlags + "abc";
      EXPECT_EQ(pSender->writev(frame, uInFirst == 3 ? 1 : 2), sWanted.size());
      EXPECT_EQ(stream.read(sWanted.size()), sWanted);
    }
  }
  char record[48] = {};
  EXPECT_EQ(thrownBy([&] { pSender->write(record, 47); }), "Buffer size too small!");
  record[28] = 49;  // a header longer than what is there
  EXPECT_EQ(thrownBy([&] { pSender->write(record, 48); }), "Buffer size too small!");
  EXPECT_EQ(pSender->getHeaderSize(), 24U);
  stream.pPeer.reset();
}

TEST(StreamSender, SendsATpktFrameAsItIs) {
  Sending stream;
  auto pSender = stream.sender("QM_TPKT");
  const JIoBuf frame[] = {{const_cast<char*>("ab"), 2}, {const_cast<char*>("c"), 1}};
  EXPECT_EQ(pSender->writev(frame, 2), 11U);
  EXPECT_EQ(stream.read(11), std::string("\1\0\0\0\0\0\0\3abc", 11));
  EXPECT_EQ(pSender->writev(frame, 0), 8U);
  EXPECT_EQ(stream.read(8), std::string("\1\0\0\0\0\0\0\0", 8));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(qm_stream::TPKT(0x01020304).data()), 8),
            std::string("\1\0\0\0\1\2\3\4", 8));
  stream.pPeer.reset();
}

TEST(StreamSender, EndsWithItsMarkerAndLosesNoTail) {
  for (const Framing& framing : kFramings) {
    SCOPED_TRACE(framing.szId);
    Sending stream;
    auto pSender = stream.sender(framing.szId);
    // More than the buffers of both ends hold, so that much is on its way when the sender is done.
    std::string sFrame(4'000'048, 'x');
    if (framing.uInline != 0) {
      qm_ci::Bitstream oBs;
      oBs.attach(sFrame.data(), 48);
    }
    std::thread sending([&] {
      pSender->write(sFrame.data(), sFrame.size());
      pSender.reset();
    });
    auto pReceiver = qm_stream::findProtocol(framing.szId)
                         ->createISocket(std::move(stream.pPeer), nullptr, "", nullptr, "");
    EXPECT_EQ(pReceiver->getNextFrameSize(), framing.uInline != 0 ? 4'000'000U : 4'000'048U);
    std::string sHead(framing.uInline, '\0');
    std::string sGot(pReceiver->getNextFrameSize(), '\0');
    JIoBuf buffers[] = {{sHead.data(), framing.uInline},
                        {sGot.data(), static_cast<std::uint32_t>(sGot.size())}};
    const std::size_t uFirst = framing.uInline == 0 ? 1 : 0;
    EXPECT_EQ(pReceiver->readv(buffers + uFirst, 2 - uFirst), framing.uInline + sGot.size());
    EXPECT_TRUE(sGot.ends_with("xxxx"));
    EXPECT_EQ(readFrame(framing, *pReceiver), "end");
    pReceiver.reset();
    sending.join();
  }
}

TEST(StreamSender, SendsWhatItHasGatheredInOrder) {
  const std::string sSmall(100, 's');
  const std::string sLarge(qm_stream::OFrameSocket::kGatheredFrame, 'l');
  Sending stream;
  auto pSender = stream.sender("QM_TPKT");
  pSender->gatherSmallFrames();
  std::string sWanted;
  const auto write = [&](const std::string& sFrame) {
    EXPECT_EQ(pSender->write(sFrame.data(), sFrame.size()), sFrame.size() + 8);
    const qm_stream::TPKT header(static_cast<std::uint32_t>(sFrame.size()));
    sWanted += std::string(reinterpret_cast<const char*>(header.data()), 8) + sFrame;
  };
  write(sSmall);
  write(sLarge);  // takes along what stands before it
  EXPECT_EQ(stream.read(sWanted.size()), sWanted);
  sWanted.clear();
  for (int i = 0; i < 1000; ++i) {  // more than is kept
    write(sSmall + std::to_string(i));
  }
  pSender->flush();
  EXPECT_EQ(stream.read(sWanted.size()), sWanted);
  sWanted.clear();
  write(sSmall);
  std::thread ending([&] { pSender.reset(); });
  EXPECT_EQ(stream.read(sWanted.size() + 9), sWanted + std::string("\1\0\0\0\0\0\0\0", 8));
  stream.pPeer.reset();
  ending.join();
}

TEST(StreamSender, BreaksOffWithoutAMarker) {
  Sending stream;
  auto pSender = stream.sender("QM_TPKT");
  pSender->write("abc", 3);
  EXPECT_EQ(stream.read(11).size(), 11U);
  pSender->abandon();
  EXPECT_EQ(thrownBy([&] { pSender->write("abc", 3); }), "the stream has been broken off");
  pSender.reset();
  EXPECT_EQ(qm_test::failureOf([&] { stream.read(1); }).first, 10054U) << "reset, without a byte more";
}

TEST(StreamSender, WrapsOnlyWhatCarriesFrames) {
  struct TinyPackets : JTCPSocket {
    explicit TinyPackets(std::uint32_t uBytes) : uMTU(uBytes) {}
    std::uint32_t getMTU() const override { return uMTU; }
    std::uint32_t uMTU;
  };
  using namespace qm_stream;
  const auto packets = [](std::uint32_t uBytes) { return std::make_unique<TinyPackets>(uBytes); };
  const std::string sCopy = "invalid params given to ORCPYSocket30 constructor";
  EXPECT_EQ(thrownBy([&] { ORCPYSocket30 socket(nullptr); }), sCopy);
  EXPECT_EQ(thrownBy([&] { IRCPYSocket30 socket(packets(23)); }), sCopy);
  EXPECT_EQ(thrownBy([&] { OTPKTSocket socket(packets(7)); }),
            "invalid params given to OTPKTSocket constructor");
  EXPECT_EQ(thrownBy([&] { ITPKTSocket socket(nullptr); }),
            "invalid params given to ITPKTSocket constructor");
  const ITPKTSocket tpkt(packets(8));
  EXPECT_EQ(tpkt.getMTU(), 0U);
  EXPECT_EQ(tpkt.getName().substr(0, 20), "OTPKTSocket::JSocket");
  EXPECT_EQ(tpkt.getProtocol(), "qmtpkt");
  const IRCPYSocket30 copy(packets(24));
  EXPECT_EQ(copy.getName().substr(0, 22), "IRCPYSocket30::JSocket");
  EXPECT_EQ(copy.getProtocol(), "qmrcpy30");

  LogLines log;
  const StreamProtocol& row = *findProtocol("QM_RCPY30");
  EXPECT_EQ(row.createOSocket(std::make_unique<JUDPSocket>(), ""), nullptr);
  EXPECT_EQ(row.createISocket(std::make_unique<JUDPSocket>(), nullptr, "", nullptr, ""), nullptr);
  EXPECT_EQ(log.count(11, "ASSERTION FAILED (std::string(poSocket->getProtocol())==\"tcp\")"), 2);
}

}  // namespace
