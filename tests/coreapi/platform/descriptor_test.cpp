#include "coreapi/platform/descriptor.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

#include "coreapi/platform/brokenpipe.h"
#include "coreapi/platform/faultseam.h"
#include "tests/support/tempdir.h"

namespace {

using qm_platform::FaultKind;

class Descriptor : public testing::Test {
 protected:
  ~Descriptor() override { qm_platform::disarmFaults(); }

  static void failCalls(FaultKind kind, bool bOnwards = false) {
    qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kFile),
                            .nth = 1,
                            .kind = kind,
                            .error = ENOSPC,
                            .onwards = bOnwards});
  }

  const qm_test::TempDir m_directory;
  const std::string m_sPath = m_directory.path("file");
};

TEST_F(Descriptor, AppendsAndIsClosedOnExec) {
  for (int i = 0; i < 2; ++i) {
    int iFile = 0;
    int iSecond = 0;
    ASSERT_EQ(qm_platform::openAppend(m_sPath, iFile), 0);
    ASSERT_EQ(qm_platform::duplicateDescriptor(iFile, iSecond), 0);
    EXPECT_TRUE(fcntl(iFile, F_GETFD) & fcntl(iSecond, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(qm_platform::writeAll(iFile, "ab", 2), 0);
    EXPECT_EQ(qm_platform::closeDescriptor(iFile), 0);
    EXPECT_EQ(qm_platform::writeAll(iSecond, "c", 1), 0);
    EXPECT_EQ(qm_platform::closeDescriptor(iSecond), 0);
  }
  EXPECT_EQ(qm_test::readFile(m_sPath), "abcabc");
}

TEST_F(Descriptor, EachCallMayFailOrBeInterrupted) {
  int iFile = 5;
  EXPECT_EQ(qm_platform::duplicateDescriptor(-1, iFile), EBADF);
  EXPECT_EQ(iFile, qm_platform::kNoDescriptor);
  failCalls(FaultKind::kError);
  EXPECT_EQ(qm_platform::openAppend(m_sPath, iFile), ENOSPC);
  failCalls(FaultKind::kInterrupt);
  ASSERT_EQ(qm_platform::openAppend(m_sPath, iFile), 0);

  std::size_t uWritten = 99;
  failCalls(FaultKind::kShort, true);
  EXPECT_EQ(qm_platform::writeAll(iFile, "byte by byte", 12, &uWritten), 0);
  EXPECT_EQ(qm_platform::countedCalls(), 12U);
  EXPECT_EQ(uWritten, 12U);
  failCalls(FaultKind::kInterrupt);
  EXPECT_EQ(qm_platform::writeAll(iFile, "!", 1), 0);
  failCalls(FaultKind::kError);
  EXPECT_EQ(qm_platform::writeAll(iFile, "lost", 4, &uWritten), ENOSPC);
  EXPECT_EQ(uWritten, 0U);
  failCalls(FaultKind::kError);
  EXPECT_EQ(qm_platform::closeDescriptor(iFile), ENOSPC);
  qm_platform::disarmFaults();
  EXPECT_EQ(qm_platform::closeDescriptor(iFile), EBADF);  // it was closed all the same
  EXPECT_EQ(qm_test::readFile(m_sPath), "byte by byte!");
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
