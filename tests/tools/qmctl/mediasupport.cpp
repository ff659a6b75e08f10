#include "tests/tools/qmctl/mediasupport.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/FileInput.h"
#include "storage/FileOutput.h"
#include "tests/support/tempdir.h"

namespace qm_test {

std::vector<std::string> linesOf(const std::string& sCommand) {
  std::string sOutput;
  std::FILE* const pPipe = popen(sCommand.c_str(), "r");
  for (int c = std::fgetc(pPipe); c != EOF; c = std::fgetc(pPipe)) {
    sOutput += static_cast<char>(c);
  }
  EXPECT_EQ(pclose(pPipe), 0) << sCommand;
  std::vector<std::string> lines;
  std::istringstream stream(sOutput);
  for (std::string sLine; std::getline(stream, sLine);) {
    lines.push_back(sLine);
  }
  return lines;
}

std::string makeClip(const std::string& sPath, const std::string& sOptions) {
  linesOf(
      "ffmpeg -v error -y -f lavfi -i testsrc=size=96x64:rate=10 -f lavfi -i "
      "sine=frequency=440:sample_rate=44100 -t 2 " +
      sOptions + " '" + sPath + "'");
  return sPath;
}

void rewrite(const std::string& sFrom, const std::string& sTo, const std::string& sUnfinished) {
  const auto pInput =
      FileInput::create(std::make_unique<JFileSocket>(sFrom, JFileSocket::kRead, true), false);
  ASSERT_NE(pInput, nullptr);
  const auto pOutput =
      FileOutput::create(std::make_unique<JFileSocket>(sTo, JFileSocket::kWrite, true), sTo, sTo);
  for (std::uint32_t i = 1; i <= pInput->getFileInfo().getStreamCount(); ++i) {
    pOutput->addStream(*pInput->getFileInfo().getStream(i)->getStreamInfo());
  }
  pOutput->start(nullptr);
  std::uint32_t uStream = 0;
  qm_ci::Bitstream frame;
  while (pInput->readNextFrame(uStream, frame, true) == FileInput::kFrame) {
    if (frame.getPacketLength(0) > 0) {
      pOutput->writeBitstream(uStream, frame, 0, 0);
    }
  }
  if (!sUnfinished.empty()) {
    std::ofstream(sUnfinished, std::ios::binary) << readFile(sTo);
  }
}

std::vector<qmctl::Json> jsonOf(const std::vector<std::string>& command) {
  std::vector<std::string> arguments{"--json"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  const ToolRun run = runTool(arguments);
  EXPECT_EQ(run.iStatus, 0) << run.sError;
  EXPECT_EQ(run.sError, "");
  std::vector<qmctl::Json> objects;
  std::istringstream stream(run.sOut);
  for (std::string sLine; std::getline(stream, sLine);) {
    objects.push_back(qmctl::Json::parse(sLine));
  }
  return objects;
}

}  // namespace qm_test
