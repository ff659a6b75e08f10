#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "coreapi/qmutils/socket/jfilelimitedsocket.h"
#include "tests/coreapi/qmutils/socket/file_test_support.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

using qm_platform::FaultKind;
using qm_test::failFileCall;
using qm_test::failure;
using qm_test::fileFailure;
using qm_test::readFile;

class FileSocket : public testing::Test {
 protected:
  const qm_test::TempDir m_dir;
  const std::string m_sPath = m_dir.path("file");
};

/// All that is left of a file from its position on.
std::string rest(JFileSocket& file) {
  std::array<char, 100> buffer;
  return {buffer.data(), file.read(buffer.data(), buffer.size())};
}

TEST_F(FileSocket, ModesDecideWhatMayBeDoneAndWhatStays) {
  struct {
    const char* name;
    int mode;
    bool exists;
    const char* open;   // what opening throws, behind CreateFile("PATH")
    const char* write;  // what writing "new" throws
    const char* read;   // what reading from the start throws
    const char* after;  // contents in the end
  } const rows[] = {
      {"read a file", 0, true, "", "WriteFile 9", "", "old text"},
      {"read no file", 0, false, " 2", "", "", ""},
      {"update a file", 1, true, "", "", "", "new text"},
      {"update no file", 1, false, "", "", "", "new"},
      {"write a file", 2, true, "", "", "ReadFile 9", "new"},
      {"write no file", 2, false, "", "", "ReadFile 9", "new"},
      {"a temporary file", 3, true, "", "", "", ""},
      {"no such mode", 4, true, " 22", "", "", "old text"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(m_sPath);
    if (row.exists) {
      m_dir.write("file", "old text");
    }
    const std::string sThrown = fileFailure([&] {
      JFileSocket file(m_sPath, row.mode, true);
      EXPECT_EQ(file.getProtocol(), "file");
      EXPECT_NE(fcntl(file.getFileHandle(), F_GETFD) & FD_CLOEXEC, 0);
      EXPECT_EQ(fileFailure([&] { file.write("new", 3); }), row.write);
      EXPECT_EQ(file.rewind(), 0);
      EXPECT_EQ(fileFailure([&] { rest(file); }), row.read);
      EXPECT_EQ(fileFailure([&] { file.flush(); }), "");
      EXPECT_TRUE(std::filesystem::exists(m_sPath));
    });
    EXPECT_EQ(sThrown, row.open[0] == '\0' ? "" : "CreateFile(\"" + m_sPath + "\")" + row.open);
    EXPECT_EQ(readFile(m_sPath), row.after);
    EXPECT_EQ(std::filesystem::exists(m_sPath), row.after[0] != '\0');
  }
  EXPECT_FAILURE("CreateFile(\"" + m_dir.path("") + "\")", EISDIR, JFileSocket(m_dir.path(""), 0, true));
}

TEST_F(FileSocket, TemporaryFileGoesWhereverTheProcessStandsAndSparesASuccessor) {
  const std::string sOld = qm_utils::getCurrentDirectory();
  qm_utils::setCurrentDirectory(m_dir.path(""));
  JFileSocket first("first", JFileSocket::kTemporary, true);
  JFileSocket second("second", JFileSocket::kTemporary, true);
  qm_utils::setCurrentDirectory(sOld);
  std::filesystem::remove(m_dir.path("second"));
  m_dir.write("second", "another's");
  first.close();
  second.close();
  EXPECT_FALSE(std::filesystem::exists(m_dir.path("first")));
  EXPECT_EQ(readFile(m_dir.path("second")), "another's");
}

TEST_F(FileSocket, DenialOfSharingHoldsAmongItsUsersUntilTheFileIsClosed) {
  for (const auto& [bFirst, bSecond] :
       {std::pair(true, true), {true, false}, {false, true}, {false, false}}) {
    const bool bAllowed = bFirst && bSecond;
    JFileSocket first(m_sPath, JFileSocket::kReadWrite, bFirst);
    first.write("kept", 4);
    const auto openSecond = [&] { JFileSocket second(m_sPath, JFileSocket::kWrite, bSecond); };
    EXPECT_EQ(fileFailure(openSecond), bAllowed ? "" : failure("CreateFile(\"" + m_sPath + "\")", EAGAIN));
    EXPECT_EQ(readFile(m_sPath), bAllowed ? "" : "kept");  // a file that is refused isn't emptied
    first.close();
    EXPECT_EQ(fileFailure(openSecond), "");
  }
}

TEST_F(FileSocket, PositionsAre64BitsWide) {
  constexpr std::uint64_t kBeyond = (std::uint64_t{1} << 32) + 5;
  JFileSocket file(m_sPath, JFileSocket::kReadWrite, true);
  file.setEndOfFile(kBeyond);
  EXPECT_EQ(file.tell(), kBeyond);
  EXPECT_EQ(file.seek(std::int32_t{-1}, JFileSocket::kCurrent), 4U);  // the low word
  EXPECT_EQ(file.tell(), kBeyond - 1);
  EXPECT_EQ(file.seek(std::int64_t{-2}, JFileSocket::kEnd), kBeyond - 2);
  file.write("abcd", 4);
  EXPECT_EQ(file.seek(std::int64_t{kBeyond}, JFileSocket::kStart), kBeyond);
  EXPECT_EQ(rest(file), "cd");
  EXPECT_EQ(rest(file), "");
  EXPECT_EQ(file.skip(-1), 0);
  EXPECT_EQ(rest(file), "d");
  std::uint32_t uType = 0;
  std::uint64_t uSize = 0;
  file.getInfo(&uType, &uSize);
  EXPECT_EQ(uType, qm_utils::kPlainFile);
  EXPECT_EQ(uSize, kBeyond + 2);
  EXPECT_FAILURE("SetFilePointer", EINVAL, file.seek(std::int64_t{-1}, JFileSocket::kStart));
  EXPECT_FAILURE("SetFilePointer", EINVAL, file.seek(0, 3));
  EXPECT_FAILURE("SetFilePointer", EINVAL, file.setEndOfFile(~std::uint64_t{0}));
  EXPECT_FAILURE("SetEndOfFile", EINVAL, JFileSocket(m_sPath, 0, true).setEndOfFile(1));
}

TEST_F(FileSocket, ClosedFileFailsAndClosesAgain) {
  JFileSocket file(m_sPath, JFileSocket::kReadWrite, true);
  file.close();
  file.close();
  EXPECT_FAILURE("ReadFile", EBADF, rest(file));
  EXPECT_FAILURE("WriteFile", EBADF, file.write("x", 1));
  EXPECT_FAILURE("FlushFileBuffers", EBADF, file.flush());
  EXPECT_FAILURE("GetFileInformationByHandle", EBADF, file.getInfo(nullptr));
  EXPECT_FAILURE("JFileSocket(HANDLE)", EBADF, JFileSocket adopted(-1));
}

/// Keeps what it is told.
struct Notify : JSocketAsyncIONotify {
  void onComplete(std::size_t uBytes) override { bytes.push_back(uBytes); }
  void onError() override { bytes.push_back(~std::size_t{0}); }
  std::vector<std::size_t> bytes;
};

TEST_F(FileSocket, GathersAnyNumberOfBuffersAndTellsAtOnce) {
  std::string sAll;
  std::vector<JIoBuf> buffers;
  for (std::size_t i = 0; i < 1500; ++i) {
    sAll.append(i % 5, static_cast<char>('a' + i % 26));
  }
  for (std::size_t i = 0, uFrom = 0; i < 1500; uFrom += i % 5, ++i) {
    buffers.push_back({sAll.data() + uFrom, static_cast<std::uint32_t>(i % 5)});
  }
  Notify notify;
  JFileSocket file(m_sPath, JFileSocket::kReadWrite, true);
  failFileCall(0, FaultKind::kNone);  // counts only
  EXPECT_EQ(file.writev(buffers.data(), buffers.size()), sAll.size());
  EXPECT_EQ(qm_platform::countedCalls(), 3U);  // 1200 buffers that hold something, 512 a call
  EXPECT_EQ(readFile(m_sPath), sAll);

  failFileCall(2, FaultKind::kShort, 0, true);  // byte by byte from the second call on
  file.rewind();
  file.writev(buffers.data(), buffers.size(), &notify);
  file.write("end", 3, &notify);
  file.write("end", 3, nullptr);
  EXPECT_TRUE(qm_platform::disarmFaults());
  EXPECT_EQ(readFile(m_sPath), sAll + "endend");
  EXPECT_THAT(notify.bytes, testing::ElementsAre(sAll.size(), 3U));

  failFileCall(1, FaultKind::kError, EIO);
  EXPECT_FAILURE("WriteFile", EIO, file.write("lost", 4, &notify));
  EXPECT_EQ(notify.bytes.size(), 2U);
}

TEST_F(FileSocket, EveryCallMayBeInterruptedOrCutShort) {
  for (const FaultKind kind : {FaultKind::kInterrupt, FaultKind::kShort}) {
    std::string sRead;
    qm_test::failEachFileCall(
        kind, 0,
        [&] {
          JFileSocket file(m_sPath, JFileSocket::kTemporary, true);
          file.write("some text", 9);
          const JIoBuf more[] = {{const_cast<char*>(" and"), 4}, {const_cast<char*>(" more"), 5}};
          file.writev(more, 2);
          file.flush();
          file.setEndOfFile(17);
          file.rewind();
          sRead = rest(file);
        },
        [&](const std::string& sThrown) {
          EXPECT_EQ(sThrown, "");
          EXPECT_EQ(sRead, "some text and mor");
          EXPECT_FALSE(std::filesystem::exists(m_sPath));
        });
  }
}

TEST_F(FileSocket, PipeGivesWhatItHasAndItsBreakIsAnError) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  JFileSocket reader(ends[0]);
  auto pWriter = std::make_unique<JFileSocket>(ends[1]);
  const std::string sMuch(300'000, 'x');
  std::string sGot;
  std::thread thread([&] {
    std::array<char, 100'000> buffer;
    while (const std::size_t uGot = reader.read(buffer.data(), buffer.size())) {
      sGot.append(buffer.data(), uGot);
    }
  });
  pWriter->write(sMuch.data(), sMuch.size());
  const JIoBuf tail[] = {{const_cast<char*>("ta"), 2}, {const_cast<char*>("il"), 2}};
  pWriter->writev(tail, 2);
  EXPECT_FAILURE("SetFilePointer", ESPIPE, pWriter->tell());
  pWriter.reset();
  thread.join();
  EXPECT_EQ(sGot, sMuch + "tail");

  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  JFileSocket broken(ends[1]);
  EXPECT_FAILURE("WriteFile", EPIPE, broken.write("x", 1));
  EXPECT_FAILURE("WriteFile", EPIPE, broken.writev(tail, 2));
}

TEST_F(FileSocket, FullDiskHasAnErrorOfItsOwnAndWhatFitStays) {
  {
    const qm_test::FileSizeLimit limit(6);
    JFileSocket file(m_sPath, JFileSocket::kWrite, true);
    EXPECT_EQ(fileFailure([&] { file.write("too much", 8); }), failure("WriteFile", EFBIG) + " full");
    file.rewind();
    const JIoBuf parts[] = {{const_cast<char*>("TOO "), 4}, {const_cast<char*>("much"), 4}};
    EXPECT_EQ(fileFailure([&] { file.writev(parts, 2); }), failure("WriteFile", EFBIG) + " full");
  }
  EXPECT_EQ(readFile(m_sPath), "TOO mu");
  JFileSocket file(m_sPath, JFileSocket::kWrite, true);
  for (const int iError : {ENOSPC, EDQUOT}) {
    failFileCall(1, FaultKind::kError, iError);
    EXPECT_EQ(fileFailure([&] { file.write("x", 1); }), failure("WriteFile", iError) + " full");
    qm_platform::disarmFaults();
  }
}

TEST_F(FileSocket, ViewsShowAndChangeTheFileFromAnyOffset) {
  const auto uPage = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const std::uint64_t uOffset = 2 * uPage + 3;
  JFileSocket file(m_sPath, JFileSocket::kReadWrite, true);
  EXPECT_FAILURE("CreateFileMapping", EINVAL, file.mmap(0, 1, false));
  file.setEndOfFile(uOffset);
  file.write("seven..", 7);
  auto* const pView = static_cast<char*>(file.mmap(uOffset, 7, true));
  auto* const pWhole = static_cast<const char*>(file.mmap(0, uOffset + 7, false));
  file.close();
  EXPECT_EQ(std::string(pView, 7), "seven..");
  std::memcpy(pView, "SEVEN", 5);
  EXPECT_EQ(std::string(pWhole + uOffset, 7), "SEVEN..");
  JFileSocket::munmap(pView);
  JFileSocket::munmap(pWhole);
  EXPECT_FAILURE("UnmapViewOfFile", EINVAL, JFileSocket::munmap(pView));

  JFileSocket again(m_sPath, JFileSocket::kRead, true);
  constexpr std::uint64_t k4GiB = std::uint64_t{1} << 32;
  const std::pair<std::uint64_t, std::uint64_t> outside[] = {
      {uOffset, 8}, {uOffset + 8, 1}, {0, 0}, {~std::uint64_t{0}, 1}, {0, k4GiB - 1}};
  for (const auto& [uFrom, uLength] : outside) {
    EXPECT_FAILURE("MapViewOfFile", EINVAL, again.mmap(uFrom, uLength, false));
  }
  for (const std::uint64_t uLength : {k4GiB - 3, ~std::uint64_t{0}}) {
    EXPECT_FAILURE("mmap with length > 4GB", ENOTSUP, again.mmap(3, uLength, false));
  }
  EXPECT_FAILURE("CreateFileMapping", EACCES, again.mmap(0, 1, true));
}

TEST_F(FileSocket, DirectTransfersFallBackWhereTheFileSystemRefuses) {
  constexpr std::size_t kBlock = 4096;
  const qm_utils::AlignedBuffer block(static_cast<std::uint8_t*>(qm_utils::allocPages(kBlock, 512)));
  struct {
    const char* name;
    bool atOpening;
    bool atTransfer;
  } const rows[] = {
      {"not refused", false, false}, {"at the opening", true, false}, {"at a transfer", false, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const bool bRefused = row.atOpening || row.atTransfer;
    const qm_test::LogCapture log;
    failFileCall(row.atOpening ? 1 : 0, FaultKind::kError, EINVAL);
    JDirectIOSocket file(m_sPath, JFileSocket::kWrite, true);
    EXPECT_EQ(qm_platform::disarmFaults(), row.atOpening);
    failFileCall(row.atTransfer ? 1 : 0, FaultKind::kError, EINVAL);
    std::memset(block.get(), 'd', kBlock);
    const JIoBuf halves[] = {{block.get(), kBlock / 2}, {block.get() + kBlock / 2, kBlock / 2}};
    EXPECT_EQ(file.writev(halves, 2), kBlock);
    EXPECT_EQ(qm_platform::disarmFaults(), row.atTransfer);
    EXPECT_EQ(file.write(block.get(), kBlock), kBlock);
    EXPECT_EQ(log.messages().size(), bRefused ? 1U : 0U);
    for (const auto& line : log.messages()) {
      EXPECT_EQ(line.level, qm_err::kLogWarning);
      EXPECT_THAT(line.text, testing::HasSubstr("No direct I/O on \"" + m_sPath + "\""));
    }
    JDirectIOSocket back(m_sPath, JFileSocket::kRead, true);
    EXPECT_EQ(back.skip(kBlock), 0);
    std::memset(block.get(), 0, kBlock);
    EXPECT_EQ(back.read(block.get(), kBlock), kBlock);
    EXPECT_EQ(block[kBlock - 1], 'd');
    EXPECT_EQ(back.read(block.get(), kBlock), 0U);
  }
  JDirectIOSocket file(m_sPath, JFileSocket::kWrite, true);
  EXPECT_EQ(static_cast<JISocket&>(file).getAlignment(), 512U);
  file.setAlignment(kBlock);
  EXPECT_EQ(static_cast<JOSocket&>(file).getAlignment(), kBlock);
  const qm_test::LogCapture log;
  failFileCall(1, FaultKind::kError, EINVAL);
  EXPECT_FAILURE("WriteFile", EINVAL, file.write(block.get(), 100));  // the caller's fault
  qm_platform::disarmFaults();
  EXPECT_TRUE(log.messages().empty());
}

TEST(AlignedMemory, StandsAtMultiplesAndRefusesWhatCannotBe) {
  for (const std::size_t uAlignment : {0, 1, 512, 65536}) {
    for (const std::size_t uSize : {0, 1, 4097}) {
      const qm_utils::AlignedBuffer memory(
          static_cast<std::uint8_t*>(qm_utils::allocAligned(uSize, uAlignment)));
      ASSERT_NE(memory, nullptr);
      std::memset(memory.get(), 1, uSize);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.get()) % std::max<std::size_t>(uAlignment, 1), 0U);
    }
  }
  EXPECT_EQ(qm_utils::allocAligned(~std::size_t{0}, 512), nullptr);
  EXPECT_EQ(qm_utils::allocPages(1, ~std::size_t{0}), nullptr);
}

TEST_F(FileSocket, LimitedFileTakesAtLeastItsTime) {
  using Clock = std::chrono::steady_clock;
  JFileLimitedSocket file(m_sPath, JFileSocket::kReadWrite, 20'000);  // bytes a second, µs a read
  const auto start = Clock::now();
  const JIoBuf parts[] = {{const_cast<char*>("a"), 1}, {const_cast<char*>("b"), 1}};
  EXPECT_EQ(file.write(std::string(200, 'x').data(), 200), 200U);
  EXPECT_EQ(file.writev(parts, 2), 2U);
  EXPECT_GE(Clock::now() - start, std::chrono::microseconds(10'100));
  file.rewind();
  EXPECT_EQ(rest(file).size(), 100U);
  EXPECT_GE(Clock::now() - start, std::chrono::microseconds(30'100));
}

}  // namespace
