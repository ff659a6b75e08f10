#include "coreapi/platform/descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>

#include "coreapi/platform/brokenpipe.h"
#include "coreapi/platform/faultseam.h"

namespace {

using qm_platform::FaultKind;

class Descriptor : public testing::Test {
 protected:
  Descriptor() { std::filesystem::remove(m_sPath); }
  ~Descriptor() override {
    qm_platform::disarmFaults();
    std::filesystem::remove(m_sPath);
  }

  static void failCalls(FaultKind kind, std::uint64_t uNth, bool bOnwards = false) {
    qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            .nth = uNth,
                            .kind = kind,
                            .error = ENOSPC,
                            .onwards = bOnwards});
  }

  std::string contents() const {
    std::ifstream file(m_sPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string m_sPath = testing::TempDir() + "qm_descriptor_" + std::to_string(getpid());
};

TEST_F(Descriptor, AppendsAndIsClosedOnExec) {
  for (int i = 0; i < 2; ++i) {
    int iFile = 0;
    ASSERT_EQ(qm_platform::openAppend(m_sPath, iFile), 0);
    EXPECT_TRUE(fcntl(iFile, F_GETFD) & FD_CLOEXEC);
    int iSecond = 0;
    ASSERT_EQ(qm_platform::duplicateDescriptor(iFile, iSecond), 0);
    EXPECT_TRUE(fcntl(iSecond, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(qm_platform::writeAll(iFile, "ab", 2), 0);
    EXPECT_EQ(qm_platform::closeDescriptor(iFile), 0);
    EXPECT_EQ(qm_platform::writeAll(iSecond, "c", 1), 0);
    EXPECT_EQ(qm_platform::closeDescriptor(iSecond), 0);
  }
  EXPECT_EQ(contents(), "abcabc");
}

TEST_F(Descriptor, FailuresAreTold) {
  int iFile = 5;
  EXPECT_EQ(qm_platform::openAppend("/nowhere/at/all", iFile), ENOENT);
  EXPECT_EQ(iFile, qm_platform::kNoDescriptor);
  iFile = 5;
  EXPECT_EQ(qm_platform::duplicateDescriptor(-1, iFile), EBADF);
  EXPECT_EQ(iFile, qm_platform::kNoDescriptor);
  EXPECT_EQ(qm_platform::writeAll(-1, "a", 1), EBADF);
  EXPECT_EQ(qm_platform::closeDescriptor(-1), EBADF);
}

TEST_F(Descriptor, EachCallMayFailOrBeInterrupted) {
  int iFile = 0;
  failCalls(FaultKind::kError, 1);
  EXPECT_EQ(qm_platform::openAppend(m_sPath, iFile), ENOSPC);
  failCalls(FaultKind::kInterrupt, 1);
  ASSERT_EQ(qm_platform::openAppend(m_sPath, iFile), 0);

  std::size_t uWritten = 99;
  failCalls(FaultKind::kShort, 1, true);
  EXPECT_EQ(qm_platform::writeAll(iFile, "byte by byte", 12, &uWritten), 0);
  EXPECT_EQ(qm_platform::countedCalls(), 12U);
  EXPECT_EQ(uWritten, 12U);
  failCalls(FaultKind::kInterrupt, 1);
  EXPECT_EQ(qm_platform::writeAll(iFile, "!", 1, &uWritten), 0);
  failCalls(FaultKind::kError, 1);
  EXPECT_EQ(qm_platform::writeAll(iFile, "lost", 4, &uWritten), ENOSPC);
  EXPECT_EQ(uWritten, 0U);
  failCalls(FaultKind::kError, 1);
  EXPECT_EQ(qm_platform::closeDescriptor(iFile), ENOSPC);
  qm_platform::disarmFaults();
  EXPECT_EQ(qm_platform::closeDescriptor(iFile), EBADF);  // it was closed all the same
  EXPECT_EQ(contents(), "byte by byte!");
}

TEST_F(Descriptor, WaitsWhereANonBlockingPipeIsFull) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  const std::string sText(1'000'000, 'x');
  std::size_t uRead = 0;
  std::thread reader([&] {
    std::string sBuffer(10'000, '\0');
    for (ssize_t iCount; (iCount = ::read(ends[0], sBuffer.data(), sBuffer.size())) > 0;) {
      uRead += static_cast<std::size_t>(iCount);
    }
  });
  EXPECT_EQ(qm_platform::writeAll(ends[1], sText.data(), sText.size()), 0);
  qm_platform::closeDescriptor(ends[1]);
  reader.join();
  EXPECT_EQ(uRead, sText.size());
  qm_platform::closeDescriptor(ends[0]);
}

TEST_F(Descriptor, BrokenPipeIsAnErrorUnderItsGuardAlone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  {
    const qm_platform::BrokenPipeGuard outer;
    const qm_platform::BrokenPipeGuard inner;
    EXPECT_EQ(qm_platform::writeAll(ends[1], "a", 1), EPIPE);
  }
  // Nothing is left pending, and the signal ends the process as before.
  EXPECT_EXIT(qm_platform::writeAll(ends[1], "a", 1), testing::KilledBySignal(SIGPIPE), "");
  ::close(ends[1]);
}

}  // namespace
