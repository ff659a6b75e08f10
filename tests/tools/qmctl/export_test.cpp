#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileInput.h"
#include "storage/FileOutput.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/tempdir.h"
#include "tests/tools/qmctl/mediasupport.h"

namespace {

using namespace qm_test;

/// Pictures or sound of a stream when it is decoded: times in milliseconds, and hashes.
struct Decoded {
  std::vector<double> times;
  std::vector<std::string> hashes;
};

Decoded decoded(const std::string& sPath, const char* szStream) {
  Decoded all;
  double dTick = 0;
  for (const std::string& sLine :
       linesOf("ffmpeg -v error -i '" + sPath + "' -map " + szStream + " -f framemd5 -")) {
    if (sLine.starts_with("#tb 0: ")) {
      dTick = 1000.0 * std::atoi(sLine.c_str() + 7) / std::atoi(sLine.c_str() + sLine.find('/') + 1);
    } else if (sLine[0] != '#') {
      all.times.push_back(dTick * std::atof(sLine.c_str() + sLine.find(',') + 1));
      all.hashes.push_back(sLine.substr(sLine.rfind(' ') + 1));
    }
  }
  return all;
}

TEST(Export, GivesAClipBackFrameByFrame) {
  const TempDir dir;
  struct {
    const char* szName;
    const char* szOptions;
    const char* szOut;
    bool bSound;
    bool bThroughAsf = true;
  } const rows[] = {
      {"TagAndPcm", "-c:v msmpeg4 -c:a pcm_s16le", "a.mkv", true},
      {"H264AndMp3", "-c:v libx264 -bf 0 -c:a libmp3lame", "a.mp4", true},
      {"HeaderInFrames", "-c:v mpeg4 -g 7 -an", "a.mp4", false},
      {"JpegAndPcm", "-c:v mjpeg -c:a pcm_u8", "a.avi", true},
      {"PlainPictures", "-c:v rawvideo -pix_fmt bgr24 -an", "a.avi", false, false},
      {"OrderOfOthers", "-c:v libx264 -an", "a.avi", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szName);
    const std::string sClip = makeClip(dir.path("clip.avi"), row.szOptions);
    const std::string sFile = row.bThroughAsf ? dir.path("clip.asf") : sClip;
    if (row.bThroughAsf) {
      rewrite(sClip, sFile);
    }
    const std::string sOut = dir.path(row.szOut);
    const ToolRun run = runTool({"--json", "export", sFile, sOut});
    ASSERT_EQ(run.iStatus, 0) << run.sError;
    EXPECT_EQ(qmctl::Json::parse(run.sOut)["streams"][0]["frames"], 20);
    for (const char* const szStream : {"0:0", "0:1"}) {
      if (szStream[2] == '1' && !row.bSound) {
        continue;
      }
      const Decoded before = decoded(sClip, szStream);
      const Decoded after = decoded(sOut, szStream);
      ASSERT_GE(before.hashes.size(), 20U);
      EXPECT_EQ(before.hashes, after.hashes);
      for (std::size_t i = 0; i < after.times.size() && i < before.times.size(); ++i) {
        ASSERT_NEAR(before.times[i], after.times[i], 1.1) << i;
      }
    }
  }
}

TEST(Export, OfSoundFilesKeepsEverySample) {
  const TempDir dir;
  const std::string sWave = makeClip(dir.path("a.wav"), "-vn -c:a pcm_s16le -ar 8000 -t 0.9");
  EXPECT_EQ(runTool({"export", sWave, dir.path("b.wav")}).iStatus, 0);
  const auto samples = [](const std::string& sPath) {
    return linesOf("ffmpeg -v error -i '" + sPath + "' -f md5 -");
  };
  EXPECT_EQ(samples(dir.path("b.wav")), samples(sWave));  // the last frame isn't filled up
  const std::string sMp3 = makeClip(dir.path("a.mp3"), "-vn -c:a libmp3lame -id3v2_version 0");
  EXPECT_EQ(runTool({"export", sMp3, dir.path("b.mp3")}).iStatus, 0);
  EXPECT_EQ(samples(dir.path("b.mp3")), samples(sMp3));  // the header in front tells where the sound ends
  EXPECT_EQ(runTool({"export", sMp3, dir.path("b.mkv")}).iStatus, 0);
  const auto frames = [](const std::string& sPath) {
    return linesOf("ffprobe -v error -count_packets -show_entries stream=nb_read_packets -of csv '" + sPath +
                   "'");
  };
  EXPECT_EQ(frames(dir.path("b.mkv")), frames(sMp3));  // and isn't sound
}

/// An ASF file of the clip's first pictures, with times of the test's own.
std::string asfWithTimes(const TempDir& dir, const std::vector<std::uint64_t>& times) {
  const std::string sClip = makeClip(dir.path("t.avi"), "-c:v mpeg4 -g 3 -an");
  const auto pInput =
      FileInput::create(std::make_unique<JFileSocket>(sClip, JFileSocket::kRead, true), false);
  const std::string sAsf = dir.path("t.asf");
  const auto pOutput =
      FileOutput::create(std::make_unique<JFileSocket>(sAsf, JFileSocket::kWrite, true), "asf", sAsf);
  pOutput->open(pInput->getFileInfo().getStream(1)->getStreamInfo(), nullptr, nullptr);
  qm_ci::Bitstream frame;
  std::uint32_t uStream = 0;
  for (const std::uint64_t uTime : times) {
    pInput->readNextFrame(uStream, frame, true);
    frame.setTimestamp(12943620000000000 + uTime);
    pOutput->writeBitstream(1, frame, 0, 0);
  }
  return sAsf;
}

TEST(Export, KeepsGapsKeyFramesAndTheDate) {
  const TempDir dir;
  const std::string sAsf = asfWithTimes(dir, {0, 40'000, 40'000, 5'000'000, 4'000'000});
  EXPECT_EQ(runTool({"export", sAsf, dir.path("t.mkv")}).iStatus, 0);
  EXPECT_EQ(
      linesOf("ffprobe -v error -show_entries packet=dts,flags:format_tags=creation_time -of csv=p=0 '" +
              dir.path("t.mkv") + "'"),
      (std::vector<std::string>{"0,K_", "40,__", "41,__", "5000,K_", "5001,__",
                                "2011-03-03T10:00:00.000000Z"}));
}

TEST(Export, RefusesInWordsAndLeavesNoFile) {
  const TempDir dir;
  const std::string sClip = makeClip(dir.path("a.avi"), "-c:v mpeg4 -c:a pcm_s16le");
  makeClip(dir.path("b.avi"), "-c:v libx264 -an");
  makeClip(dir.path("r.avi"), "-c:v rawvideo -pix_fmt bgr24 -an");
  rewrite(dir.path("r.avi"), dir.path("r.asf"));
  for (const bool bData : {false, true}) {
    const std::string sPath = dir.path(bData ? "data.asf" : "own.asf");
    const auto pOutput =
        FileOutput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true), "asf", sPath);
    const auto stream = bData ? dataStream() : audioStream("", "audio/x-own");
    pOutput->open(&stream, nullptr, nullptr);
  }
  struct {
    const char* szFile;
    const char* szOut;
    int iStatus;
    const char* szWords;
  } const rows[] = {
      {"a.avi", "o.xyz", 2, "must end in .mkv, .mp4, .avi, .mp3 or .wav"},
      {"a.avi", "o", 2, "must end in"},
      {"a.avi", "a.avi", 2, "is the file itself"},
      {"a.avi", "o.mp3", 1,
       "stream 1 is coded as 'video/x-VfW-FMP4' (mpeg4), which can't go into .mp3 files"},
      {"a.avi", "o.mp4", 1, "stream 2 is coded as 'audio/x-AfW-PCM' (pcm_s16le), which can't go into .mp4"},
      {"b.avi", "o.mkv", 1, "shown in another order than they are stored in"},
      {"r.avi", "o.mkv", 1, "try .avi"},
      {"r.asf", "o.avi", 1, "whether the top line of such pictures comes first or last"},
      {"own.asf", "o.mkv", 1, "stream 1 is coded as 'audio/x-own', which no common player knows"},
      {"data.asf", "o.mkv", 1, "has no stream that could be exported"},
      {"none.avi", "o.mkv", 1, "none.avi"},
      {"a.avi", "none/o.mkv", 1, "No such file or directory"},
  };
  const std::string sBytes = readFile(sClip);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szWords);
    const ToolRun run = runTool({"export", dir.path(row.szFile), dir.path(row.szOut)});
    EXPECT_EQ(run.iStatus, row.iStatus);
    EXPECT_NE(run.sError.find(row.szWords), std::string::npos) << run.sError;
    EXPECT_EQ(run.sOut, "");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(sClip.substr(0, sClip.rfind('/'))), {}), 6);
  }
  EXPECT_EQ(readFile(sClip), sBytes);
}

/// A terminal whose user presses Ctrl-C as soon as it shows something.
class ImpatientUser : public std::stringbuf {
  int sync() override {
    std::raise(SIGINT);
    return 0;
  }
};

TEST(Export, ThatEndsEarlyLeavesTheFileThatWasThere) {
  const TempDir dir;
  const std::string sClip = makeClip(dir.path("a.avi"), "-c:v mjpeg -an -t 0.5");
  const std::string sOut = dir.write("o.mkv", "old");
  dir.write("o.mkv.exporting", "of an export that was killed");
  ImpatientUser user;
  std::ostream terminal(&user);
  std::istringstream in;
  std::ostringstream out;
  qmctl::Context context{{}, in, out, terminal, false, {}, true};
  const char* const argv[] = {"qmctl", "export", sClip.c_str(), sOut.c_str()};
  EXPECT_EQ(qmctl::runCommandLine(4, argv, context), 130);
  EXPECT_NE(user.str().find("%"), std::string::npos);
  EXPECT_EQ(readFile(sOut), "old");
  EXPECT_FALSE(std::filesystem::exists(sOut + ".exporting"));

  int iRun = 0;
  for (bool bFailed = true; bFailed; ++iRun) {
    ASSERT_LT(iRun, 1000);
    qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            .nth = static_cast<std::uint64_t>(iRun) + 1,
                            .error = ENOSPC});
    const ToolRun run = runTool({"export", sClip, sOut});
    bFailed = qm_platform::disarmFaults();
    if (run.iStatus != 0) {
      EXPECT_EQ(run.iStatus, 1);
      EXPECT_NE(run.sError, "");
      // The last call of all is the one that syncs the directory: the new file stands by then.
      EXPECT_TRUE(readFile(sOut) == "old" || readFile(sOut).size() > 1000) << iRun;
    }
    EXPECT_FALSE(std::filesystem::exists(sOut + ".exporting")) << iRun << run.sError;
  }
  EXPECT_GT(iRun, 20);
  EXPECT_EQ(decoded(sOut, "0:0").hashes, decoded(sClip, "0:0").hashes);
}

}  // namespace
