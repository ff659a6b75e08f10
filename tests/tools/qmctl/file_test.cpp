#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "tests/support/tempdir.h"
#include "tests/tools/qmctl/mediasupport.h"

namespace {

using namespace qm_test;
using qmctl::Json;

/// SHA-256 of each packet of a stream, as ffmpeg sees the file.
std::vector<std::string> packetHashes(const std::string& sPath, int iStream) {
  std::vector<std::string> hashes;
  for (const std::string& sLine : linesOf("ffmpeg -v error -i '" + sPath + "' -map 0:" +
                                          std::to_string(iStream) + " -c copy -f framehash -hash sha256 -")) {
    if (sLine[0] != '#') {
      hashes.push_back(sLine.substr(sLine.rfind(' ') + 1));
    }
  }
  return hashes;
}

std::vector<std::string> hashesOf(const std::vector<Json>& frames, int iStream) {
  std::vector<std::string> hashes;
  for (const Json& frame : frames) {
    if (frame["stream"] == iStream) {
      hashes.push_back(frame["sha256"]);
    }
  }
  return hashes;
}

TEST(FileCommands, DescribeAFileAsItWasWritten) {
  const TempDir dir;
  const std::string sAvi = makeClip(dir.path("a.avi"), "-c:v mpeg4 -g 7 -c:a pcm_s16le");
  const std::string sAsf = dir.path("a.asf");
  rewrite(sAvi, sAsf);
  const Json described = jsonOf({"file", "info", sAvi}).at(0);
  for (const std::string& sPath : {sAvi, sAsf}) {
    SCOPED_TRACE(sPath);
    const auto frames = jsonOf({"file", "frames", sPath});
    EXPECT_EQ(hashesOf(frames, 1), packetHashes(sAvi, 0));
    EXPECT_EQ(hashesOf(frames, 2), packetHashes(sAvi, 1));
    Json info = jsonOf({"file", "info", sPath}).at(0);
    EXPECT_EQ(info["format"], sPath.substr(sPath.size() - 3));
    EXPECT_EQ(info["finished"], true);
    const Json& video = info["streams"][0];
    EXPECT_EQ(video["mime"], "video/x-VfW-FMP4");
    EXPECT_EQ(video["width"], 96);
    EXPECT_EQ(video["frames"], 20);
    EXPECT_EQ(video["rate"], Json({10, 1}));
    EXPECT_EQ(video["firstDate"], described["streams"][0]["firstDate"]);
    EXPECT_EQ(video["lastDate"].get<std::uint64_t>() - video["firstDate"].get<std::uint64_t>(), 1'900'000U);
    EXPECT_EQ(info["streams"][1]["type"], "audio");
    EXPECT_EQ(info["streams"][1]["samplingRate"], 44100);
    std::size_t i = 0;
    for (const Json& entry : jsonOf({"file", "index", sPath})) {
      while (i < frames.size() && frames[i]["stream"] != entry["stream"]) {
        ++i;  // an index is told stream by stream
      }
      i = entry["number"] == 0 && entry["stream"] == 2 ? 0 : i;
      while (i < frames.size() &&
             (frames[i]["stream"] != entry["stream"] || frames[i]["number"] != entry["number"])) {
        ++i;
      }
      ASSERT_LT(i, frames.size()) << entry;
      EXPECT_EQ(entry["flags"], frames[i]["flags"]) << entry;
      if (sPath == sAsf) {
        EXPECT_EQ(entry["time"], frames[i]["time"]) << entry;
        EXPECT_EQ(entry["frameNumber"], frames[i]["frameNumber"]) << entry;
      }
    }
  }
  EXPECT_NE(runTool({"file", "info", sAsf}).sOut.find("96x64"), std::string::npos);
  EXPECT_EQ(runTool({"file", "info", dir.write("x.asf", "no media file")}).iStatus, 1);
}

TEST(FileCommands, DescribeSoundFiles) {
  const TempDir dir;
  const std::string sWave = makeClip(dir.path("a.wav"), "-vn -ar 8000 -t 0.9");
  const Json wave = jsonOf({"file", "info", sWave}).at(0);
  EXPECT_EQ(wave["format"], "wave");
  EXPECT_EQ(wave["dataSize"], 14400);
  EXPECT_EQ(wave["streams"][0]["frames"], 8);
  EXPECT_EQ(jsonOf({"file", "frames", sWave}).back()["size"], 14400 - 7 * 2048);
  EXPECT_EQ(jsonOf({"file", "index", sWave}).size(), 0U);
  const std::string sMp3 = makeClip(dir.path("a.mp3"), "-vn -c:a libmp3lame -id3v2_version 0 -write_xing 0");
  const Json mp3 = jsonOf({"file", "info", sMp3}).at(0);
  EXPECT_EQ(mp3["format"], "mp3");
  EXPECT_EQ(mp3["finished"], false);  // without the index that the system's own files have
  EXPECT_EQ(mp3["streams"][0]["frames"], packetHashes(sMp3, 0).size());
  EXPECT_EQ(hashesOf(jsonOf({"file", "frames", sMp3}), 1), packetHashes(sMp3, 0));
  // Bytes behind the sound don't pass for silence.
  std::ofstream(sMp3, std::ios::app) << std::string(300, 'x');
  EXPECT_NE(runTool({"file", "frames", sMp3}).sError.find("the last 300 bytes aren't whole frames"),
            std::string::npos);
}

TEST(FileCommands, CountWholeFramesAndSayWhatIsWrong) {
  const TempDir dir;
  const std::string sAvi = readFile(makeClip(dir.path("a.avi"), "-c:v mjpeg -an"));
  const std::string sCut = dir.write("b.avi", sAvi.substr(0, sAvi.size() / 2));
  const ToolRun info = runTool({"--json", "file", "info", sCut});
  EXPECT_NE(info.sError.find("cut short or damaged"), std::string::npos) << info.sError;
  const auto uFrames = Json::parse(info.sOut)["streams"][0]["frames"].get<std::size_t>();
  const ToolRun frames = runTool({"--json", "file", "frames", sCut});
  EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(frames.sOut, '\n')), uFrames);
  EXPECT_NE(runTool({"export", sCut, dir.path("b.mkv")}).sError.find("didn't come to its end"),
            std::string::npos);
  // Sound that was never finished isn't filled up with silence.
  std::string sWave = readFile(makeClip(dir.path("a.wav"), "-vn -ar 8000 -t 0.9"));
  sWave.replace(sWave.find("data") + 4, 4, 4, '\0');
  EXPECT_EQ(jsonOf({"file", "frames", dir.write("b.wav", sWave)}).back()["size"], 14400 - 7 * 2048);
  const ToolRun tagged = runTool({"file", "info", makeClip(dir.path("a.mp3"), "-vn -c:a libmp3lame")});
  EXPECT_NE(tagged.sError.find("an ID3 tag of version 2"), std::string::npos) << tagged.sError;
}

TEST(FileCommands, TellTheCodingOfSoundOfOthers) {
  const TempDir dir;
  const std::string sMp3 = makeClip(dir.path("a.avi"), "-vn -c:a libmp3lame");
  EXPECT_EQ(jsonOf({"file", "info", sMp3}).at(0)["streams"][0]["mime"], "audio/x-AfW-0055");
}

TEST(FileCommands, SeePicturesThatAreLargerThanPlainOnes) {
  const TempDir dir;
  const std::string sPath = dir.path("a.avi");
  linesOf(
      "ffmpeg -v error -f lavfi -i 'nullsrc=size=16x16:rate=10,geq=random(1)*255:128:128' -t 1 -c:v mjpeg "
      "-q:v 1 '" +
      sPath + "'");
  EXPECT_EQ(hashesOf(jsonOf({"file", "frames", sPath}), 1), packetHashes(sPath, 0));
}

TEST(Rebuild, GivesWhatAWriterLeftItsIndex) {
  const TempDir dir;
  const std::string sAvi = makeClip(dir.path("a.avi"), "-c:v mpeg4 -an");
  const std::string sAsf = dir.path("left.asf");
  rewrite(sAvi, dir.path("whole.asf"), sAsf);
  EXPECT_EQ(jsonOf({"file", "info", sAsf}).at(0)["finished"], false);
  EXPECT_EQ(jsonOf({"file", "info", sAsf}).at(0)["streams"][0]["frames"], 20);
  EXPECT_EQ(jsonOf({"file", "rebuild", sAsf}).at(0),
            Json({{"command", "rebuild"}, {"changed", true}, {"frames", 19}}));
  auto frames = jsonOf({"file", "frames", dir.path("whole.asf")});
  frames.pop_back();
  EXPECT_EQ(jsonOf({"file", "frames", sAsf}), frames);
  EXPECT_EQ(jsonOf({"file", "index", sAsf}).size(), 19U);
  const std::string sBytes = readFile(sAsf);
  EXPECT_EQ(runTool({"file", "rebuild", sAsf}).sOut,
            "the file has its index and its final header; nothing is to be done\n");
  EXPECT_EQ(readFile(sAsf), sBytes);

  struct {
    const char* szFrom;
    const char* szOptions;
    const char* szName;
    const char* szWords;
  } const rows[] = {
      {"a.avi", "-c:v mpeg4 -an", "left.avi", "the index of an AVI file can't be written anew"},
      {"a.wav", "-vn", "left.wav", "the size in a WAVE file can't be written anew"},
      {"a.mp3", "-vn -id3v2_version 0", "left.mp3", "none can be written into an MP3 file"},
  };
  for (const auto& row : rows) {
    const std::string sLeft = dir.path(row.szName);
    rewrite(makeClip(dir.path(row.szFrom), row.szOptions), dir.path(std::string("whole.") + (row.szName + 5)),
            sLeft);
    const ToolRun run = runTool({"file", "rebuild", sLeft});
    EXPECT_EQ(run.iStatus, 1) << row.szName;
    EXPECT_NE(run.sError.find(row.szWords), std::string::npos) << run.sError;
    EXPECT_EQ(runTool({"file", "rebuild", dir.path(std::string("whole.") + (row.szName + 5))}).iStatus, 0)
        << row.szName;
  }
}

TEST(Rebuild, GivesAFileWhoseIndexBreaksOffAllOfIt) {
  const TempDir dir;
  const std::string sAsf = dir.path("a.asf");
  rewrite(makeClip(dir.path("a.avi"), "-c:v mpeg4 -c:a pcm_s16le"), sAsf);
  const auto frames = jsonOf({"file", "frames", sAsf});
  const std::size_t uSound = hashesOf(frames, 2).size();
  const std::string sCut = dir.write("b.asf", readFile(sAsf).substr(0, readFile(sAsf).size() - 40));
  const Json info = jsonOf({"file", "info", sCut}).at(0);
  EXPECT_EQ(info["finished"], false);
  EXPECT_EQ(info["streams"][1]["frames"], uSound);
  EXPECT_EQ(jsonOf({"file", "rebuild", sCut}).at(0)["frames"], frames.size() - 1);
  EXPECT_EQ(jsonOf({"file", "info", sCut}).at(0)["finished"], true);
  EXPECT_EQ(jsonOf({"file", "index", sCut}).size(), frames.size() - 1);
}

TEST(Cut, EndsTheFileInFrontOfADate) {
  const TempDir dir;
  const std::string sAvi = makeClip(dir.path("a.avi"), "-c:v mpeg4 -an");
  const std::string sAsf = dir.path("a.asf");
  rewrite(sAvi, sAsf);
  const auto frames = jsonOf({"file", "frames", sAsf});
  const auto timeOf = [&](std::size_t i) { return frames[i]["time"].get<std::uint64_t>(); };
  struct {
    const char* szName;
    std::string sDate;
    int iStatus;
    std::size_t uLeft;
    const char* szWords;
  } const rows[] = {
      {"BehindTheLast", "@" + std::to_string(timeOf(19) + 1), 1, 20, "nothing is to be cut"},
      {"BetweenTwo", "@" + std::to_string(timeOf(15) - 1), 0, 15, "keeps 15 of 20 frames"},
      {"AtAFrame", "@" + std::to_string(timeOf(10)), 0, 10, "keeps 10 of 15 frames"},
      {"AtTheFirst", "@" + std::to_string(timeOf(0)), 1, 10, "nothing was cut"},
      {"BeforeTheFirst", "2001-01-01T00:00:00Z", 1, 10, "nothing was cut"},
      {"NoDate", "yesterday", 2, 10, "not a date"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.szName);
    const ToolRun run = runTool({"file", "cut", sAsf, row.sDate});
    EXPECT_EQ(run.iStatus, row.iStatus) << run.sError;
    EXPECT_NE((run.sOut + run.sError).find(row.szWords), std::string::npos) << run.sOut << run.sError;
    EXPECT_EQ(jsonOf({"file", "frames", sAsf}),
              std::vector<Json>(frames.begin(), frames.begin() + static_cast<std::ptrdiff_t>(row.uLeft)));
    EXPECT_EQ(jsonOf({"file", "index", sAsf}).size(), row.uLeft);
  }
  EXPECT_NE(runTool({"file", "cut", sAvi, "@1"}).sError.find("only an ASF file can be cut"),
            std::string::npos);
}

}  // namespace
