#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/socket/jprocesspipe.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_test::Failure;
using qm_test::failureOf;
using qm_test::openDescriptors;
using qm_test::readAll;

/// What a command line writes to its output.
std::string outputOf(const std::string& sCommandLine, const char* const* env = nullptr) {
  JProcessPipe process(false, true, false);
  process.exec(sCommandLine, env);
  std::string sText = readAll(*process.getStdout());
  EXPECT_EQ(process.wait(false, true), 0);
  return sText;
}

bool hasChildren() {
  siginfo_t info;
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// Starts children until those that were given up have ended and nothing is left of them.
void awaitNoChildren() {
  while (hasChildren()) {
    outputOf("true");
  }
}

TEST(ProcessPipe, CutsTheCommandLineAtBlanksOutsideQuotes) {
  struct {
    const char* szCommandLine;
    const char* szOutput;
  } const rows[] = {
      {"printf [%s] a bc", "[a][bc]"},
      {"  printf   [%s]   a   ", "[a]"},
      {"printf [%s] \"a  b\" c\"d e\"f", "[a  b][cd ef]"},
      {"\"printf\" [%s] \"\" x", "[][x]"},
      {"printf [%s] \"open end", "[open end]"},
      {"printf [%s] $HOME * ; 'a b'", "[$HOME][*][;]['a][b']"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(outputOf(row.szCommandLine), row.szOutput) << row.szCommandLine;
  }
  JProcessPipe process(false, true, false);
  const char* const argv[] = {"skipped", "[%s]", "a b", "c", nullptr};
  process.exec("/usr/bin/printf", argv, nullptr);
  EXPECT_EQ(readAll(*process.getStdout()), "[a b][c]");
}

TEST(ProcessPipe, TellsHowAChildEnded) {
  JProcessPipe process(true, true, true);
  process.exec("sh -c \"cat; echo error >&2; exit 7\"", nullptr);
  EXPECT_EQ(qm_test::thrownBy([&] { process.wait(false, false); }), "Time out!") << "it waits for its input";
  process.getStdin()->write("text", 4);
  process.takeStdin().reset();
  EXPECT_EQ(readAll(*process.getStdout()), "text");
  EXPECT_EQ(readAll(*process.getStderr()), "error\n");
  EXPECT_EQ(process.wait(true, true), 7);
  EXPECT_EQ(process.wait(false, false), 7) << "the code stays";

  process.exec("sh -c \"kill -KILL $$\"", nullptr);
  EXPECT_EQ(process.wait(true, true), 128 + SIGKILL);
  process.close();
  EXPECT_EQ(failureOf([&] { process.wait(false, true); }).second, "WaitForSingleObject");
  EXPECT_EQ(process.getStdin(), nullptr);
}

TEST(ProcessPipe, FailsInExecWhenTheProgramCantRun) {
  const std::ptrdiff_t iDescriptors = openDescriptors();
  JProcessPipe process(true, true, true);
  struct {
    std::string sCommandLine;
    std::uint32_t uError;
  } const rows[] = {{"no-such-program-of-anybody x", ENOENT},
                    {"/etc/passwd", EACCES},
                    {"\"sh -c exit\"", ENOENT},
                    {"", ENOENT}};
  for (const auto& row : rows) {
    EXPECT_EQ(failureOf([&] { process.exec(row.sCommandLine, nullptr); }),
              (Failure(row.uError, "CreateProcess")))
        << row.sCommandLine;
    EXPECT_EQ(process.getStdout(), nullptr);
  }
  EXPECT_EQ(openDescriptors(), iDescriptors);
  EXPECT_FALSE(hasChildren());
}

TEST(ProcessPipe, MergesTheEnvironmentInOrder) {
  setenv("QM_TEST_B", "m", 1);
  const char* const env[] = {"QM_TEST_C=1", "QM_TEST_B=z", "QM_TEST_A=1", "QM_TEST_B=a", nullptr};
  const std::string sOutput = outputOf("env", env);
  EXPECT_NE(sOutput.find("QM_TEST_A=1\nQM_TEST_B=a\nQM_TEST_B=m\nQM_TEST_B=z\nQM_TEST_C=1\n"),
            std::string::npos)
      << sOutput;
  EXPECT_NE(("\n" + sOutput).find("\nPATH="), std::string::npos);
  EXPECT_NE(("\n" + outputOf("env")).find("\nQM_TEST_B=m\n"), std::string::npos);
  unsetenv("QM_TEST_B");
}

TEST(ProcessPipe, GivesTheChildItsStreamsAndNothingElse) {
  const int iInheritable = open("/dev/null", O_RDONLY);
  JProcessPipe other(true, true, true);
  other.exec("cat", nullptr);
  EXPECT_EQ(outputOf("ls /proc/self/fd"), "0\n1\n2\n3\n") << "3 is the directory that it lists";
  EXPECT_EQ(outputOf("readlink /proc/self/fd/0 /proc/self/fd/2"), "/dev/null\n/dev/null\n");
  signal(SIGUSR1, SIG_IGN);
  const std::string sIgnored = outputOf("grep SigIgn: /proc/self/status");
  EXPECT_EQ(std::stoull(sIgnored.substr(8), nullptr, 16) & (1U << (SIGUSR1 - 1)), 0U) << sIgnored;
  signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(other.wait(true, true), 0) << "no other child holds its input open";
  close(iInheritable);
}

TEST(ProcessPipe, ReportsAWriteToAChildThatIsGone) {
  JProcessPipe process(true, false, false);
  process.exec("true", nullptr);
  EXPECT_EQ(process.wait(false, true), 0);
  EXPECT_EQ(failureOf([&] { process.getStdin()->write("x", 1); }), (Failure(EPIPE, "WriteFile")));
}

TEST(ProcessPipe, SurvivesFailuresAtEveryCall) {
  qm_test::LogLines log;
  const std::ptrdiff_t iDescriptors = openDescriptors();
  std::vector<std::string> labels;
  std::uint64_t uCall = 0;
  for (bool bFired = true; bFired;) {
    qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kProcess) |
                                static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            ++uCall, qm_platform::FaultKind::kError, EMFILE, false});
    const auto error = failureOf([&] {
      JProcessPipe process(true, true, true);
      process.exec("cat", nullptr);
      EXPECT_EQ(process.wait(true, true), 0);
    });
    bFired = qm_platform::disarmFaults();
    labels.push_back(error.second);
    EXPECT_EQ(openDescriptors(), iDescriptors) << uCall;
    awaitNoChildren();
  }
  std::erase(labels, "");  // a close that reports a failure is one all the same
  labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
  EXPECT_EQ(labels, (std::vector<std::string>{"CreatePipe for stdin", "DuplicateHandle for stdin",
                                              "CreatePipe for stdout", "DuplicateHandle for stdout",
                                              "CreatePipe for stderr", "DuplicateHandle for stderr",
                                              "GetEnvironmentStrings", "CreateProcess", "JFileSocket(HANDLE)",
                                              "WaitForSingleObject", "GetExitCodeProcess"}));
}

}  // namespace
