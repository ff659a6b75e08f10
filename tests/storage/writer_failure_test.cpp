#include <array>
#include <cerrno>
#include <gmock/gmock.h>

#include "coreapi/platform/faultseam.h"
#include "tests/storage/writersupport.h"
#include "tests/support/logcapture.h"

namespace {

using namespace qm_test;
using qm_platform::FaultKind;

struct Format {
  const char* szType;
  qm_ci::StreamInfo stream;
};

std::array<Format, 4> formats() {
  return {{{"asf", dataStream()},
           {"avi", videoStream()},
           {"wav", audioStream("", "audio/x-qmpcm")},
           {"mp3", audioStream("", "audio/x-qmmp3")}}};
}

std::unique_ptr<FileOutput> started(const Format& format, const std::string& sPath) {
  auto pOutput = writerOf(format.szType, sPath);
  pOutput->open(&format.stream, nullptr, nullptr);
  return pOutput;
}

Frame frame(std::uint64_t uNumber, std::size_t size = 3000) {
  return {std::string(size, static_cast<char>('a' + uNumber)), 1000 * uNumber, uNumber, 1, 3};
}

#ifdef QM_FAULT_SEAMS

void arm(qm_platform::Seam seam, std::uint64_t nth, FaultKind kind, bool bOnwards) {
  qm_platform::armFaults({static_cast<std::uint32_t>(seam), nth, kind, ENOSPC, bOnwards});
}

TEST(Writers, LeaveTheUnfinishedFileWhenFinishingFails) {
  for (const Format& format : formats()) {
    for (std::uint64_t nth = 1, fired = 1; fired != 0; ++nth) {
      SCOPED_TRACE(std::string(format.szType) + " " + std::to_string(nth));
      const TempDir dir;
      const LogCapture log;
      auto pOutput = started(format, dir.path("a"));
      write(*pOutput, 1, frame(1));
      write(*pOutput, 1, frame(2));
      const std::string sOpen = readFile(dir.path("a"));
      bool bUnfinished = false;
      pOutput->tellUnfinished(&bUnfinished);
      arm(qm_platform::Seam::kFile, nth, FaultKind::kError, true);
      pOutput.reset();
      fired = qm_platform::disarmFaults() ? 1 : 0;
      EXPECT_EQ(fired != 0, !log.messages().empty());
      EXPECT_EQ(fired != 0, bUnfinished);
      const std::string sFile = readFile(dir.path("a"));
      if (fired != 0 && nth == 1) {
        EXPECT_EQ(sFile, sOpen);
      }
      // Whatever failed, the frames stand where they stood.
      const std::size_t media = sOpen.find(frame(1).sPayload);
      EXPECT_EQ(sFile.substr(media, sOpen.size() - media), sOpen.substr(media));
      ASSERT_LT(nth, 30U);
    }
  }
}

TEST(Writers, TakeAnotherPlaceForTheIndexOfAnAviFileOrSayWhyThereIsNone) {
  const TempDir dir;
  for (const bool bNowhere : {false, true}) {
    auto pSocket = std::make_unique<JFileSocket>(dir.path("a"), JFileSocket::kWrite, true);
    arm(qm_platform::Seam::kFile, 1, FaultKind::kError, bNowhere);
    const std::string sThrown = thrownBy([&] { FileOutput::create(std::move(pSocket), "avi", ""); });
    qm_platform::disarmFaults();
    EXPECT_EQ(sThrown.find("tmpfile") != std::string::npos, bNowhere) << sThrown;
  }
}

TEST(Writers, DoWithoutAnIndexThatHasNoMemory) {
  for (const Format& format : {formats()[0], formats()[3]}) {
    const TempDir dir;
    const LogCapture log;
    auto pOutput = started(format, dir.path("a"));
    arm(qm_platform::Seam::kAllocation, 2, FaultKind::kError, false);  // the first is the frame's own
    write(*pOutput, 1, frame(1));
    qm_platform::disarmFaults();
    write(*pOutput, 1, frame(2));
    const std::string sOpen = readFile(dir.path("a"));
    pOutput.reset();
    const bool bAsf = format.szType == std::string("asf");
    EXPECT_EQ(log.has(qm_err::kLogException, "Unable to write CI index"), bAsf);
    EXPECT_EQ(readFile(dir.path("a")),
              bAsf ? sOpen : sOpen + le(6000, 8) + std::string(8, '\xFF') + "QM_TAG_1" + le(0, 4));
  }
}

#endif

/// A file of which one write fails when part of the bytes are there.
class Tearing : public JFileSocket {
 public:
  Tearing(const std::string& sPath, bool& bTear) : JFileSocket(sPath, kWrite, true), m_bTear(bTear) {}

  using JFileSocket::write;
  using JFileSocket::writev;
  std::size_t write(const void* pBuffer, std::size_t uLength) override {
    return JFileSocket::write(pBuffer, tear(uLength));
  }
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override {
    if (m_bTear) {
      JFileSocket::write(pBuffers[1].pBuf, pBuffers[1].bufLength);
      tear(0);
    }
    return JFileSocket::writev(pBuffers, uCount);
  }

 private:
  std::size_t tear(std::size_t uLength) {
    if (m_bTear) {
      m_bTear = false;
      JFileSocket::write("torn", 4);
      QM_THROW(JNoSpaceLeftError, ENOSPC, "WriteFile");
    }
    return uLength;
  }

  bool& m_bTear;
};

TEST(Writers, LoseOnlyTheFrameWhoseWriteFails) {
  const LogCapture quiet;
  for (const Format& format : formats()) {
    SCOPED_TRACE(format.szType);
    const TempDir dir;
    const auto written = [&](bool bFailing) {
      bool bTear = false;
      auto pOutput = FileOutput::create(std::make_unique<Tearing>(dir.path("a"), bTear), format.szType, "");
      pOutput->open(&format.stream, nullptr, nullptr);
      for (const std::uint64_t uNumber : {1U, 2U}) {
        write(*pOutput, 1, frame(uNumber));
        bTear = bFailing;
        EXPECT_TRUE(!bFailing || thrownBy([&] { write(*pOutput, 1, frame(7, 70000)); }) != "");
      }
      pOutput.reset();
      std::string sFile = readFile(dir.path("a"));
      return format.szType == std::string("asf") ? sFile.erase(64, 8) : sFile;  // without its creation date
    };
    EXPECT_EQ(written(true), written(false));
  }
}

/// A connection, which has no position: takes so many bytes of a buffer at once, and fails at one write.
class Connection : public JSocket {
 public:
  explicit Connection(std::string* psTaken, std::size_t mostAtOnce = 1000, int iFailAt = 0)
      : m_psTaken(psTaken), m_mostAtOnce(mostAtOnce), m_iFailAt(iFailAt) {}

  using JSocket::write;
  using JSocket::writev;
  std::size_t write(const void* pBuffer, std::size_t uLength) override {
    if (++m_iWrites == m_iFailAt) {
      QM_THROW(JTimeoutError);
    }
    const std::size_t taken = std::min(uLength, m_mostAtOnce);
    if (m_psTaken != nullptr) {
      m_psTaken->append(static_cast<const char*>(pBuffer), taken);
    }
    return taken;
  }
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override {
    std::size_t taken = 0;
    bool bWhole = true;
    for (std::size_t i = 0; i < uCount && bWhole; ++i) {
      const std::size_t part = write(pBuffers[i].pBuf, pBuffers[i].bufLength);
      bWhole = part == pBuffers[i].bufLength;
      taken += part;
    }
    return taken;
  }

 private:
  std::string* m_psTaken;
  std::size_t m_mostAtOnce;
  int m_iFailAt;
  int m_iWrites = 0;
};

TEST(Writers, RefuseTheFrameThatTheSizesOfTheFormatCantTell) {
  const Frame large = {std::string(64U << 20, 'x'), 1, 1, 1, 3};
  for (const Format& format : {formats()[1], formats()[2]}) {
    auto pOutput = FileOutput::create(std::make_unique<Connection>(nullptr, SIZE_MAX), format.szType, "");
    pOutput->open(&format.stream, nullptr, nullptr);
    for (int i = 1; i < 64; ++i) {
      EXPECT_EQ(thrownBy([&] { write(*pOutput, 1, large); }), "");
    }
    EXPECT_THAT(thrownBy([&] { write(*pOutput, 1, large); }),
                testing::HasSubstr("file can't be larger than 4 GiB"));
    EXPECT_EQ(thrownBy([&] { write(*pOutput, 1, {"small", 64, 64, 1, 3}); }), "");
  }
}

TEST(Writers, KeepTheFirstHeaderOnAChannelWithoutPosition) {
  const TempDir dir;
  for (const Format& format : formats()) {
    SCOPED_TRACE(format.szType);
    const std::size_t size = format.szType == std::string("asf") ? 900 : 3000;
    std::string sTaken;
    auto pChannel = FileOutput::create(std::make_unique<Connection>(&sTaken), format.szType, "");
    pChannel->open(&format.stream, nullptr, nullptr);
    auto pFile = started(format, dir.path("a"));
    for (FileOutput* const pOutput : {pChannel.get(), pFile.get()}) {
      write(*pOutput, 1, frame(1, size));
      write(*pOutput, 1, frame(2, size));
    }
    std::string sOpen = readFile(dir.path("a"));
    pChannel.reset();
    pFile.reset();
    std::string sExpected = sOpen + readFile(dir.path("a")).substr(sOpen.size());
    if (format.szType == std::string("asf")) {
      sTaken.erase(64, 8);
      sExpected.erase(64, 8);
    }
    EXPECT_EQ(sTaken, sExpected);
  }
}

TEST(Writers, CountNoFrameOfAStreamWhoseWriteWasReportedToHaveFailed) {
  std::string sTaken;
  const LogCapture log;
  auto pOutput = FileOutput::create(std::make_unique<Connection>(&sTaken, 1000, 4), "asf", "");
  const qm_ci::StreamInfo stream = dataStream();
  pOutput->open(&stream, nullptr, nullptr);
  write(*pOutput, 1, frame(1, 10));
  write(*pOutput, 1, frame(2, 10));
  write(*pOutput, 1, frame(3, 10));
  const std::unique_ptr<FileInfo> pInfo(pOutput->detachFileInfo());
  pOutput.reset();
  EXPECT_EQ(pInfo->getStream(1)->getCount(), 2U);
  EXPECT_EQ(readIndexEntry(pInfo->getStream(1)->getEntries() + 32, FILEINDEX_CI).ullPosition, 46U);
  EXPECT_FALSE(log.has(qm_err::kLogError, "ASSERTION FAILED (m_nSize==m_nMaxSize)"));
}

}  // namespace
