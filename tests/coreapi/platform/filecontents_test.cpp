#include "coreapi/platform/filecontents.h"

#include <cerrno>
#include <cstdint>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "coreapi/platform/faultseam.h"
#include "tests/support/tempdir.h"

namespace {

/// A file of a number of bytes for one test.
class FileContents : public testing::Test {
 protected:
  void write(std::size_t size) const { m_directory.write("file", std::string(size, 'x')); }

  const qm_test::TempDir m_directory;
  const std::string m_sPath = m_directory.path("file");
  std::vector<std::uint8_t> m_contents = {1, 2, 3};
};

TEST_F(FileContents, AreReadWholeUpToTheLimit) {
  for (const std::size_t size : {0, 1, 65535, 65536, 65537, 200'000}) {
    write(size);
    EXPECT_EQ(qm_platform::readFileContents(m_sPath, 200'000, m_contents), 0);
    EXPECT_EQ(m_contents, std::vector<std::uint8_t>(size, 'x'));
  }
  EXPECT_EQ(qm_platform::readFileContents(m_sPath, 199'999, m_contents), EFBIG);
  EXPECT_THAT(m_contents, testing::IsEmpty());
  EXPECT_EQ(qm_platform::readFileContents("/no/such/file", 10, m_contents), ENOENT);
  EXPECT_EQ(qm_platform::readFileContents("/tmp", 10, m_contents), EISDIR);
}

#ifdef QM_FAULT_SEAMS
TEST_F(FileContents, AreWholeOrNothingWhateverCallFails) {
  using qm_platform::FaultKind;
  constexpr auto kFile = static_cast<std::uint32_t>(qm_platform::Seam::kFile);
  write(3);
  for (const FaultKind kind : {FaultKind::kError, FaultKind::kInterrupt, FaultKind::kShort}) {
    bool bFired = true;
    for (std::uint64_t nth = 1; bFired; ++nth) {
      ASSERT_LT(nth, 20U);
      qm_platform::armFaults({kFile, nth, kind, EIO, false});
      const int error = qm_platform::readFileContents(m_sPath, 10, m_contents);
      bFired = qm_platform::disarmFaults();
      EXPECT_EQ(error, bFired && kind == FaultKind::kError ? EIO : 0);
      EXPECT_EQ(m_contents.size(), error == 0 ? 3U : 0U);
    }
  }
  qm_platform::armFaults({kFile, 1, FaultKind::kShort, 0, true});
  EXPECT_EQ(qm_platform::readFileContents(m_sPath, 10, m_contents), 0);
  EXPECT_EQ(m_contents.size(), 3U);
  qm_platform::disarmFaults();
}
#endif

}  // namespace
