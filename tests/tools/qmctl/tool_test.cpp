#include <cstdio>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/tools/qmctl/toolsupport.h"

namespace {

/// Runs the installed form of the tool through a shell. The output of both streams stands in `sOut`. The
/// tests' own place of locales isn't handed on: a library of the muxer's makes a locale when it is loaded,
/// and the system's C library leaks the copy of such a place.
qm_test::ToolRun runProgram(const std::string& sArguments) {
  qm_test::ToolRun run{};
  std::FILE* const pPipe =
      popen((std::string("env -u LOCPATH \"") + QM_TOOL + "\" " + sArguments + " 2>&1").c_str(), "r");
  for (int c = std::fgetc(pPipe); c != EOF; c = std::fgetc(pPipe)) {
    run.sOut += static_cast<char>(c);
  }
  run.iStatus = WEXITSTATUS(pclose(pPipe));
  return run;
}

TEST(Program, IsQuietAndTellsItsStatus) {
  qm_test::SmallArchive archive;
  const std::string sServer = "--server 127.0.0.1 --port " + std::to_string(archive.manager.getPort()) + " ";
  const auto found = runProgram(sServer + "--json search --source 'g*'");
  EXPECT_EQ(found.iStatus, 0);
  EXPECT_EQ(found.sOut,
            "{\"source\":\"g\xF0\x9F\x98\x80\",\"type\":\"video\",\"fps\":25,"
            "\"start\":\"03/03/2011 10:00:00.000000UTC\",\"end\":\"03/03/2011 11:00:00.000000UTC\"}\n");
  EXPECT_EQ(runProgram(sServer + "erase gate 25 @12943620000000000 @12943623600000000 < /dev/null").sOut,
            "qmctl: it is protected\n");
  EXPECT_EQ(runProgram("--server 127.0.0.1 --port 1 sources").iStatus, 3);
  EXPECT_EQ(runProgram("search --start never").iStatus, 2);
  EXPECT_EQ(runProgram(sServer + "sources > /dev/full").iStatus, 1);
}

}  // namespace
