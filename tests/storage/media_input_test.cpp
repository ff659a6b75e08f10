#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/MP3/MP3FileInfo.h"
#include "tests/storage/readersupport.h"
#include "tests/support/logcapture.h"

namespace {

using namespace qm_test;

/// Streams and sizes of a file's packets, as ffprobe sees them.
std::vector<std::pair<std::uint32_t, std::size_t>> probedPackets(const std::string& sPath) {
  std::istringstream lines(
      runTool("ffprobe -v error -show_entries packet=stream_index,size -of csv=p=0 '" + sPath + "'"));
  std::vector<std::pair<std::uint32_t, std::size_t>> packets;
  std::uint32_t uStream = 0;
  std::size_t uSize = 0;
  for (char c = 0; lines >> uStream >> c >> uSize;) {
    packets.emplace_back(uStream + 1, uSize);
    lines.ignore(100, '\n');
  }
  return packets;
}

std::vector<std::pair<std::uint32_t, std::size_t>> sizesOf(const std::vector<Read>& frames) {
  std::vector<std::pair<std::uint32_t, std::size_t>> sizes;
  for (const Read& frame : frames) {
    sizes.emplace_back(frame.uStream, frame.sPayload.size());
  }
  return sizes;
}

void make(const std::string& sOptions, const std::string& sPath) {
  runTool(
      "ffmpeg -v error -y -f lavfi -i testsrc=size=96x64:rate=10 -f lavfi -i "
      "sine=frequency=440:sample_rate=8000 "
      "-t 2 " +
      sOptions + " '" + sPath + "'");
}

std::vector<Read> writeAvi(const std::string& sPath) {
  std::vector<Read> written;
  const auto pOutput = writerOf("avi", sPath);
  pOutput->addStream(wholeVideoStream());
  pOutput->addStream(audioStream("", "audio/x-qmpcm"));
  pOutput->start(nullptr);
  for (std::uint64_t i = 0; i < 20; ++i) {
    for (std::uint32_t uStream = 1; uStream <= 2; ++uStream) {
      const Frame frame = numbered(uStream, i, 31 + i);
      write(*pOutput, uStream, frame);
      written.push_back(asRead(uStream, frame));
    }
  }
  return written;
}

void writeWave(const std::string& sPath, std::size_t uFrameSize) {
  const auto pOutput = writerOf("wav", sPath);
  const auto stream = audioStream("", "audio/x-qmpcm");
  pOutput->open(&stream, nullptr, nullptr);
  for (std::uint64_t i = 0; i < 10; ++i) {
    write(*pOutput, 1, {std::string(uFrameSize, static_cast<char>('a' + i)), kBegin + i, i, 1, 3});
  }
}

void writeMp3(const std::vector<Read>& source, const std::string& sPath) {
  const auto pOutput = writerOf("mp3", sPath);
  pOutput->getParams().add("authoringApp", "app");
  const auto stream = audioStream("", "audio/x-qmmp3");
  pOutput->open(&stream, nullptr, nullptr);
  for (std::size_t i = 0; i < source.size(); ++i) {
    write(*pOutput, 1, {source[i].sPayload, kBegin + i * kPeriod, i, 1, 3});
  }
}

TEST(AviFile, GivesBackWhatWasWritten) {
  const TempDir dir;
  const std::string sPath = dir.path("a.avi");
  const std::vector<Read> written = writeAvi(sPath);
  EXPECT_EQ(framesOf(sPath), written);
  const auto pInput = readerOf(sPath);
  EXPECT_EQ(pInput->getFileInfo().getStream(1)->getFirstDate().getMicroseconds(), kBegin);
  EXPECT_EQ(pInput->getFileInfo().getStream(2)->getLastDate().getMicroseconds(), kBegin + 19 * kPeriod);
  std::uint32_t uSize = 0;
  ASSERT_EQ(pInput->seekFrame(1, 10, &uSize, nullptr, true), FileInput::kFrame);
  EXPECT_EQ(payload(*pInput, uSize), numbered(1, 8, 39).sPayload);
  EXPECT_EQ(readAll(*pInput), std::vector<Read>(written.begin() + 17, written.end()));
  ASSERT_EQ(pInput->seekTime(1, &uSize, JTime::fromMicroseconds(kBegin + 5 * kPeriod), nullptr, false),
            FileInput::kFrame);
  EXPECT_EQ(payload(*pInput, uSize), numbered(1, 5, 36).sPayload);
  EXPECT_EQ(
      thrownBy([&] { pInput->seekTime(1, nullptr, JTime::fromMicroseconds(kBegin - 1), nullptr, false); }),
      "seek before start");
}

TEST(AviFile, TellsTheSystemsSoundByItsDescription) {
  const TempDir dir;
  const std::string sWhole = dir.path("a.avi");
  {
    const auto pOutput = writerOf("avi", sWhole);
    pOutput->addStream(audioStream("", "audio/x-qmmp3"));
    pOutput->start(nullptr);
    for (std::uint64_t i = 0; i < 5; ++i) {
      write(*pOutput, 2, numbered(1, i));
    }
    dir.write("left.avi", readFile(sWhole));
  }
  for (const char* const szName : {"a.avi", "left.avi"}) {
    SCOPED_TRACE(szName);
    const auto pInput = readerOf(dir.path(szName));
    EXPECT_EQ(pInput->getFileInfo().getStream(1)->getStreamInfo()->getMIMEType(), "audio/x-qmmp3");
    const std::vector<Read> frames = readAll(*pInput);
    EXPECT_EQ(sizesOf(frames), (std::vector<std::pair<std::uint32_t, std::size_t>>(5, {1, 50})));
  }
}

TEST(AviFile, ThatItsWriterLeftIsReadWithoutAnIndex) {
  const TempDir dir;
  make("-c:v mjpeg -c:a pcm_s16le", dir.path("a.avi"));
  const std::string sBytes = readFile(dir.path("a.avi"));
  const std::vector<Read> whole = framesOf(dir.path("a.avi"));
  const std::size_t uMovi = sBytes.find("movi");
  for (const char* const szSize : {"\0\0\0\0", "\xFF\xFF\xFF\xFF"}) {
    std::string sLeft = sBytes.substr(0, sBytes.rfind("idx1"));
    sLeft.replace(uMovi - 4, 4, szSize, 4);
    const std::string sPath = dir.write(szSize[0] == 0 ? "0.avi" : "1.avi", sLeft);
    const auto pInput = readerOf(sPath);
    EXPECT_EQ(sizesOf(readAll(*pInput)), sizesOf(whole));
    EXPECT_EQ(pInput->getFileInfo().getDataSize(), sLeft.size() - uMovi - 4);
    EXPECT_GT(pInput->getFileInfo().getStream(1)->getFirstDate().getMicroseconds(), kBegin);
    EXPECT_EQ(thrownBy([&] { pInput->seekFrame(1, 0, nullptr, nullptr, false); }),
              "getPosByNumber(): time index not available");
  }
}

TEST(AviFile, OfOthersGivesTheirPackets) {
  const TempDir dir;
  for (const char* const szOptions :
       {"-c:v mjpeg -c:a pcm_s16le", "-c:v mpeg4 -g 7 -c:a mp2", "-an -c:v mjpeg"}) {
    SCOPED_TRACE(szOptions);
    const std::string sPath = dir.path("b.avi");
    make(szOptions, sPath);
    const auto packets = probedPackets(sPath);
    ASSERT_GT(packets.size(), 19U);
    const auto pInput = readerOf(sPath);
    const std::vector<Read> frames = readAll(*pInput);
    EXPECT_EQ(sizesOf(frames), packets);
    // The sound goes on at its own pace: its last piece begins in the last half second.
    if (frames.back().uStream == 2) {
      const std::uint64_t ullBegin = pInput->getFileInfo().getStream(2)->getFirstDate().getMicroseconds();
      EXPECT_GT(frames.back().ullTimeStamp, ullBegin + 1'500'000);
      EXPECT_LT(frames.back().ullTimeStamp, ullBegin + 2'000'000);
    }
    ASSERT_EQ(pInput->seekFrame(1, 13, nullptr, nullptr, true), FileInput::kFrame);
    EXPECT_TRUE(pInput->isKeyFrame());
  }
}

struct Damage {
  const char* name;
  std::size_t place;
  std::string sBytes;
  const char* szText;
};

TEST(AviHeader, IsRefusedInWords) {
  const TempDir dir;
  writeAvi(dir.path("a.avi"));
  const std::string sWhole = readFile(dir.path("a.avi"));
  const Damage rows[] = {
      {"OtherType", 8, "AVX ", "Not an AVI file"},
      {"NoHeader", 20, "xxxx", "Invalid AVI file : no header"},
      {"HeaderTooLong", 16, le(0x100001, 4), "Invalid AVI file : header too long (1048577 bytes)"},
      {"NoMainHeader", 24, "xxxx", "Missing AVI compatibility header"},
      {"NoStreamHeader", 100, "xxxx", "bad type for stream header"},
      {"NoFormat", 164, "xxxx", "Missing stream format"}};
  for (const Damage& row : rows) {
    std::string sBytes = sWhole;
    sBytes.replace(row.place, row.sBytes.size(), row.sBytes);
    EXPECT_EQ(thrownBy([&] { readerOf(dir.write("b.avi", sBytes)); }), row.szText) << row.name;
  }
  // An entry of a stream that isn't there counts for nothing, and a further part can't be read.
  std::string sBytes = sWhole;
  sBytes.replace(sBytes.size() - 16, 4, "99dc");
  EXPECT_EQ(readerOf(dir.write("b.avi", sBytes))->getFileInfo().getStream(2)->getCount(), 19U);
  EXPECT_EQ(thrownBy([&] { readerOf(dir.write("b.avi", sWhole + "RIFF" + le(4, 4) + "AVIX")); }),
            "Invalid AVI file : it has several parts (OpenDML)");
}

/// Cuts a file shorter and shorter, byte by byte. What can be read of it is how the whole file begins.
void cutEverywhere(const std::string& sPath) {
  const std::vector<Read> whole = framesOf(sPath);
  std::size_t uMost = 0;
  for (std::uintmax_t size = std::filesystem::file_size(sPath); size-- > 0;) {
    std::filesystem::resize_file(sPath, size);
    const std::vector<Read> frames = framesThereAre(sPath);
    uMost = std::max(uMost, frames.size());
    ASSERT_LE(frames.size(), whole.size()) << size;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      ASSERT_EQ(frames[i].uStream, whole[i].uStream) << size << " frame " << i;
      // The last step of a wave file is filled up with silence.
      std::string sPayload = frames[i].sPayload;
      if (sPath.ends_with(".wav") && i + 1 == frames.size()) {
        const std::size_t uThere = (size - 44) % sPayload.size();
        sPayload.resize(uThere == 0 ? sPayload.size() : uThere);
      }
      ASSERT_EQ(sPayload, whole[i].sPayload.substr(0, sPayload.size())) << size << " frame " << i;
    }
  }
  EXPECT_GE(uMost + 1, whole.size());  // a file without a trailer loses its last frame at once
}

TEST(MediaFiles, CutAnywhereBeginAsTheWholeOnes) {
  const TempDir dir;
  const LogCapture log;
  writeAvi(dir.path("own.avi"));
  make("-c:v mjpeg -s 32x32 -c:a pcm_s16le -t 0.2", dir.path("foreign.avi"));
  writeWave(dir.path("a.wav"), 1000);
  make("-vn -c:a libmp3lame -b:a 16k -ar 16000 -id3v2_version 0 -t 0.5", dir.path("foreign.mp3"));
  writeMp3(framesOf(dir.path("foreign.mp3")), dir.path("own.mp3"));
  for (const char* const szName : {"own.avi", "foreign.avi", "a.wav", "foreign.mp3", "own.mp3"}) {
    SCOPED_TRACE(szName);
    cutEverywhere(dir.path(szName));
  }
}

TEST(MediaFiles, BrokenAnywhereEndInFramesOrAnError) {
  const TempDir dir;
  const LogCapture log;
  writeAvi(dir.path("a.avi"));
  make("-vn -c:a pcm_s16le -t 0.2", dir.path("a.wav"));
  make("-vn -c:a libmp3lame -id3v2_version 0 -t 0.5", dir.path("a.mp3"));
  std::size_t uFiles = 0;  // a new file each: one that is overwritten would wait for the disk
  for (const char* const szName : {"a.avi", "a.wav", "a.mp3"}) {
    const std::string sWhole = readFile(dir.path(szName));
    const std::size_t uFrames = framesOf(dir.path(szName)).size();
    ASSERT_GT(uFrames, 0U);
    for (std::size_t size = 0; size < sWhole.size(); size += 1 + size / 300) {
      std::string sBroken = sWhole;
      sBroken.replace(size, std::min<std::size_t>(4, sBroken.size() - size),
                      size % 2 == 0 ? zeros(4) : "\xFF\xFF\xFF\xFF");
      const std::string sPath = dir.write("b" + std::to_string(uFiles++), sBroken);
      thrownBy([&] {
        if (const auto pInput = readerOf(sPath)) {
          EXPECT_LE(readAll(*pInput).size(), sBroken.size()) << size;
        }
      });
    }
  }
}

TEST(WaveFile, OfAnybodyGivesItsSound) {
  const TempDir dir;
  const std::string sForeign = dir.path("f.wav");
  make("-vn -c:a pcm_s16le -metadata title=x", sForeign);
  const std::string sSound = runTool("ffmpeg -v error -i '" + sForeign + "' -f s16le -");
  std::string sRead;
  const std::vector<Read> frames = framesOf(sForeign);
  for (const Read& frame : frames) {
    sRead += frame.sPayload;
  }
  EXPECT_EQ(sRead.substr(0, sSound.size()), sSound);
  EXPECT_EQ(sRead.substr(sSound.size()), zeros(sRead.size() - sSound.size()));
  EXPECT_EQ(frames[3].ullTimeStamp - frames[0].ullTimeStamp, 3U * 1024 * 1000000 / 8000);

  // Chunks of an odd size in front, and a header of 18 bytes.
  std::string sOdd = readFile(sForeign);
  sOdd.insert(12, "JUNK" + le(5, 4) + "abcde" + zeros(1));
  EXPECT_EQ(framesOf(dir.write("odd.wav", sOdd)), frames);
  runTool("sox -n -r 8000 -c 2 -e mu-law '" + dir.path("s.wav") + "' synth 1 sine 440");
  ASSERT_EQ(at(readFile(dir.path("s.wav")), 16, 4), 18U);
  EXPECT_EQ(sizesOf(framesOf(dir.path("s.wav"))),
            (std::vector<std::pair<std::uint32_t, std::size_t>>(50, {1, 320})));

  const std::string sOwn = dir.path("o.wav");
  writeWave(sOwn, 4096);
  const auto pInput = readerOf(sOwn);
  EXPECT_EQ(readAll(*pInput).size(), 10U);
  std::uint32_t uSize = 0;
  EXPECT_EQ(pInput->seekFrame(1, 7, &uSize, nullptr, false), FileInput::kFrame);
  EXPECT_EQ(payload(*pInput, uSize), std::string(4096, 'h'));
  EXPECT_EQ(thrownBy([&] { pInput->seekFrame(1, 10, nullptr, nullptr, false); }), "seek past end");
  // As its writer left it: no size, and more may come.
  std::string sBytes = readFile(sOwn);
  sBytes.replace(40, 4, zeros(4));
  EXPECT_EQ(framesOf(dir.write("u.wav", sBytes)).size(), 10U);
}

TEST(WaveHeader, OfCodingsThatAreNotKnownIsRefused) {
  const TempDir dir;
  // 32767 channels of 512 bits: a step would take 2 GiB of memory, however short the file is.
  dir.write("steps.wav", "RIFF" + le(40, 4) + "WAVEfmt " + le(16, 4) + le(1, 2) + le(32767, 2) + le(8000, 4) +
                             zeros(4) + le(1, 2) + le(512, 2) + "data" + le(4, 4) + "abcd");
  EXPECT_EQ(thrownBy([&] { readerOf(dir.path("steps.wav")); }), "invalid wave format");
  make("-vn -c:a adpcm_ms", dir.path("a.wav"));
  EXPECT_EQ(thrownBy([&] { readerOf(dir.path("a.wav")); }), "wrong format wave file");
  make("-vn -c:a g726 -b:a 16k -ac 1", dir.path("g.wav"));  // two bits a sample
  EXPECT_EQ(thrownBy([&] { readerOf(dir.path("g.wav")); }), "invalid wave format");
}

TEST(Mp3File, OfAnybodyGivesItsFrames) {
  const TempDir dir;
  for (const char* const szOptions : {"-b:a 32k", "-q:a 5", "-b:a 24k -ar 16000"}) {
    SCOPED_TRACE(szOptions);
    const std::string sPath = dir.path("a.mp3");
    make(std::string("-vn -c:a libmp3lame -write_xing 0 -id3v2_version 0 ") + szOptions, sPath);
    const std::vector<Read> frames = framesOf(sPath);
    EXPECT_EQ(sizesOf(frames), probedPackets(sPath));
    std::string sAll;
    for (const Read& frame : frames) {
      sAll += frame.sPayload;
    }
    EXPECT_EQ(sAll, readFile(sPath).substr(0, sAll.size()));
  }
  make("-vn -c:a libmp3lame -metadata title=x", dir.path("t.mp3"));
  EXPECT_EQ(readerOf(dir.path("t.mp3")), nullptr);  // it begins with a tag, not with sound
}

TEST(Mp3File, OfThisSystemComesWithIndexAndParameters) {
  const TempDir dir;
  make("-vn -c:a libmp3lame -b:a 32k -write_xing 0 -id3v2_version 0", dir.path("f.mp3"));
  const std::vector<Read> source = framesOf(dir.path("f.mp3"));
  const std::string sOwn = dir.path("o.mp3");
  writeMp3(source, sOwn);
  const auto pInput = readerOf(sOwn);
  const std::vector<Read> frames = readAll(*pInput);
  EXPECT_EQ(sizesOf(frames), sizesOf(source));
  EXPECT_EQ(frames.back().ullTimeStamp, kBegin + (source.size() - 1) * kPeriod);
  std::string sApp;
  EXPECT_TRUE(pInput->getFileInfo().getParams().get("authoringApp", sApp));
  std::uint32_t uSize = 0;
  ASSERT_EQ(pInput->seekTime(1, &uSize, JTime::fromMicroseconds(kBegin + 9 * kPeriod + 3), nullptr, true),
            FileInput::kFrame);
  EXPECT_EQ(payload(*pInput, uSize), source[9].sPayload);
}

}  // namespace
