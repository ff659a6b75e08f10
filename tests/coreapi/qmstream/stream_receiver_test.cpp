#include <array>
#include <thread>

#include "coreapi/platform/faultseam.h"
#include "tests/coreapi/qmstream/stream_test_support.h"

namespace {

using qm_test::Framing;
using qm_test::kFramings;
using qm_test::pattern;
using qm_test::readFrame;
using qm_test::Receiving;
using qm_test::thrownBy;

const std::string kEndOfFile = thrownBy([] { QM_THROW(EndOfFileError); });

/// All frames and how the stream ended.
std::vector<std::string> readAll(const Framing& framing, qm_stream::IFrameSocket& receiver) {
  std::vector<std::string> frames;
  do {
    const std::string sError = thrownBy([&] { frames.push_back(readFrame(framing, receiver)); });
    if (!sError.empty()) {
      frames.push_back(sError);
    }
  } while (frames.back() != "end" && frames.back() != kEndOfFile);
  return frames;
}

TEST(StreamReceiver, CutAtAnyByteKeepsWholeFramesAndRaises) {
  const std::vector<std::string> payloads = {pattern(5), pattern(1), pattern(40)};
  for (const Framing& framing : kFramings) {
    std::string sWire;
    std::vector<std::size_t> ends;
    for (const std::string& sPayload : payloads) {
      sWire += framing.wire(sPayload);
      ends.push_back(sWire.size());
    }
    sWire += framing.wire("");
    for (const bool bDrip : {false, true}) {
      for (std::size_t uCut = 0; uCut <= sWire.size(); ++uCut) {
        SCOPED_TRACE(framing.szId + std::string(bDrip ? " dripped" : "") + " cut at " + std::to_string(uCut));
        std::vector<std::string> wanted;
        for (std::size_t i = 0; i < ends.size() && ends[i] <= uCut; ++i) {
          wanted.push_back(payloads[i]);
        }
        wanted.push_back(uCut == sWire.size() ? "end" : kEndOfFile);

        Receiving stream(framing);
        stream.send(sWire.substr(0, uCut));
        stream.connection.client.shutdownWrite();
        if (bDrip) {
          qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kSocket), 1,
                                  qm_platform::FaultKind::kShort, 0, true});
        }
        const std::vector<std::string> frames = readAll(framing, *stream.pReceiver);
        qm_platform::disarmFaults();
        ASSERT_EQ(frames, wanted);
      }
    }
  }
}

TEST(StreamReceiver, TakesFramesOfAllSizesInAnyOrder) {
  constexpr std::size_t kSizes[] = {1,     8192, 8193, 3,   200'000, 7, 65'536, 65'512, 65'513, 2,
                                    8'168, 9000, 1,    500, 8'000,   1, 70'000, 1,      64,     1'000'000};
  for (const Framing& framing : kFramings) {
    SCOPED_TRACE(framing.szId);
    Receiving stream(framing);
    std::thread sender([&] {
      for (int iRound = 0; iRound < 20; ++iRound) {
        for (const std::size_t uSize : kSizes) {
          stream.send(framing.wire(pattern(uSize)));
        }
      }
      stream.send(framing.wire(""));
    });
    std::size_t uFrames = 0;
    for (std::string sFrame; (sFrame = readFrame(framing, *stream.pReceiver)) != "end"; ++uFrames) {
      const std::size_t uSize = kSizes[uFrames % std::size(kSizes)];
      EXPECT_TRUE(sFrame == pattern(uSize)) << "frame " << uFrames << " of " << uSize;
    }
    sender.join();
    EXPECT_EQ(uFrames, 20 * std::size(kSizes));
    EXPECT_EQ(readFrame(framing, *stream.pReceiver), "end") << "the end stays";
  }
}

TEST(StreamReceiver, ScattersOverAnyNumberOfBuffers) {
  const std::string sPayload = pattern(9001);
  for (const Framing& framing : kFramings) {
    for (const std::size_t uBuffers : {2, 3, 511, 512}) {
      SCOPED_TRACE(framing.szId + std::string(" ") + std::to_string(uBuffers));
      Receiving stream(framing);
      stream.send(framing.wire(sPayload) + framing.wire("next"));
      std::string sGot(framing.uInline + sPayload.size(), '\0');
      std::vector<JIoBuf> buffers(uBuffers);
      buffers[0] = {sGot.data(), 25};  // one byte of payload, or 25
      for (std::size_t i = 1; i < uBuffers; ++i) {
        const std::size_t uOffset = i + 24;
        const bool bLast = i + 1 == uBuffers;
        buffers[i] = {sGot.data() + uOffset, bLast ? static_cast<std::uint32_t>(sGot.size() - uOffset) : 1};
      }
      EXPECT_EQ(stream.pReceiver->readv(buffers.data(), uBuffers), sGot.size());
      EXPECT_TRUE(sGot.substr(framing.uInline) == sPayload);
      EXPECT_EQ(readFrame(framing, *stream.pReceiver), "next");
    }
  }
}

TEST(StreamReceiver, RefusesWhatItsHeaderCantMean) {
  struct {
    const char* name;
    const char* szId;
    std::string sHeader;
    std::string sError;
  } const rows[] = {
      {"TPKT of version 0", "QM_TPKT", std::string("\0\0\0\0\0\0\0\1", 8), "invalid QMTPKT version!"},
      {"TPKT of version 2", "QM_TPKT", std::string("\2\0\0\0\0\0\0\1", 8), "invalid QMTPKT version!"},
      {"TPKT of 4 GiB", "QM_TPKT", std::string("\1\0\0\0\xFF\xFF\xFF\xFF", 8),
       "frame of 4294967295 bytes is larger than 67108864"},
      {"TPKT above the limit", "QM_TPKT", std::string("\1\0\0\0\4\0\0\1", 8),
       "frame of 67108865 bytes is larger than 67108864"},
      {"TPKT with reserved bytes", "QM_TPKT", std::string("\1\7\7\7\0\0\0\1", 8), ""},
      {"copy of 4 GiB", "QM_RCPY30", kFramings[0].header(0xFFFFFFFF),
       "frame of 4294967295 bytes is larger than 67108864"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Framing& framing = kFramings[row.szId == std::string("QM_TPKT") ? 1 : 0];
    Receiving stream(framing);
    stream.send(row.sHeader + "x");
    std::array<char, 64> buffer;
    for (int iTry = 0; iTry < (row.sError.empty() ? 1 : 2); ++iTry) {
      EXPECT_EQ(thrownBy([&] { stream.pReceiver->read(buffer.data(), buffer.size()); }), row.sError);
    }
  }
}

TEST(StreamReceiver, KeepsAFrameThatFindsNoRoom) {
  for (const Framing& framing : kFramings) {
    SCOPED_TRACE(framing.szId);
    Receiving stream(framing);
    stream.send(framing.wire("seven b") + framing.wire("next"));
    std::array<char, 64> buffer;
    EXPECT_EQ(thrownBy([&] { stream.pReceiver->read(buffer.data(), framing.uInline + 6); }),
              "Buffer size too small!");
    JIoBuf none[513] = {};
    none[0] = {buffer.data(), framing.uInline};
    none[512] = {buffer.data(), 64};
    EXPECT_EQ(thrownBy([&] { stream.pReceiver->readv(none, 513); }), "Buffer size too small!");
    EXPECT_EQ(stream.pReceiver->getNextFrameSize(), 7U);
    EXPECT_EQ(readFrame(framing, *stream.pReceiver), "seven b");
    EXPECT_EQ(readFrame(framing, *stream.pReceiver), "next");
  }
  Receiving stream(kFramings[0]);
  char header[23];
  EXPECT_EQ(thrownBy([&] { stream.pReceiver->read(header, sizeof header); }), "Buffer size too small!");
}

TEST(StreamReceiver, ShortensTheCallersArrayToTheTpktFrame) {
  Receiving stream(kFramings[1]);
  stream.send(kFramings[1].wire(pattern(60)) + kFramings[1].wire(pattern(40)));
  std::array<char, 4096> buffer;
  JIoBuf buffers[] = {{buffer.data(), 48}, {buffer.data() + 48, 4048}};
  EXPECT_EQ(stream.pReceiver->readv(buffers, 2), 60U);
  EXPECT_EQ(buffers[0].bufLength, 48U);
  EXPECT_EQ(buffers[1].bufLength, 12U);
  EXPECT_EQ(stream.pReceiver->readv(buffers, 2), 40U);
  EXPECT_EQ(buffers[0].bufLength, 40U);
}

TEST(StreamReceiver, TimesOutOnAPeerThatStalls) {
  for (const Framing& framing : kFramings) {
    SCOPED_TRACE(framing.szId);
    const std::string sWire = framing.wire("payload");
    const auto next = [&](Receiving& stream) {
      return thrownBy([&] { EXPECT_EQ(readFrame(framing, *stream.pReceiver), "payload"); });
    };
    Receiving header(framing, 0);
    EXPECT_EQ(next(header), "Time out!") << "nothing came";
    header.send(sWire.substr(0, 3));
    header.pReceiver->setReadTimeout(1);
    EXPECT_EQ(next(header), "Time out!") << "inside the header";
    header.send(sWire.substr(3));
    header.pReceiver->setReadTimeout(60'000);
    EXPECT_EQ(next(header), "") << "nothing is lost there";

    Receiving payload(framing, 1);
    payload.send(sWire.substr(0, sWire.size() - 1));
    EXPECT_EQ(next(payload), "Time out!") << "inside the payload";
    payload.send("d" + sWire);
    EXPECT_EQ(next(payload), "an earlier read failed inside a frame") << "the place in the stream is lost";
  }
}

}  // namespace
