#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "coreapi/platform/process.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jdirectoryiterator.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/socket/tempfile.h"
#include "tests/coreapi/qmutils/socket/file_test_support.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

namespace fs = std::filesystem;
using qm_platform::FaultKind;
using qm_test::failEachFileCall;
using qm_test::failFileCall;
using qm_test::readFile;
using testing::ElementsAre;

class FileOperations : public testing::Test {
 protected:
  std::string path(const std::string& sName) const { return m_dir.path(sName); }

  /// Names that stand in the directory.
  std::set<std::string> names() const {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(path(""))) {
      found.insert(entry.path().filename());
    }
    return found;
  }

  const qm_test::TempDir m_dir;
};

TEST_F(FileOperations, TellWhatStandsAtAPath) {
  m_dir.write("file", "12345");
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  fs::create_symlink("file", path("link"));
  const timespec times[] = {{1'000'000'000, 5000}, {-1, 999'999'000}};  // last access, last write
  ASSERT_EQ(utimensat(AT_FDCWD, path("file").c_str(), times, 0), 0);
  const std::pair<const char*, std::uint32_t> rows[] = {
      {"file", 1}, {"file///", 1}, {"file\\", 1}, {"link", 1}, {"", 2}, {"pipe", 3}, {"/../../../", 2}};
  for (const auto& [szName, uExpected] : rows) {
    std::uint32_t uType = 0;
    qm_utils::getFileInfo(path(szName), &uType);
    EXPECT_EQ(uType, uExpected) << szName;
  }
  std::uint64_t uSize = 0;
  JTime creation;
  JTime lastWrite;
  JTime lastAccess;
  qm_utils::getFileInfo(path("file"), nullptr, &uSize, &creation, &lastWrite, &lastAccess);
  EXPECT_EQ(uSize, 5U);
  EXPECT_EQ(lastAccess.toISOFormat(), "2001-09-09 01:46:40.000005 UTC");
  EXPECT_EQ(lastWrite.toISOFormat(), "1969-12-31 23:59:59.999999 UTC");
  EXPECT_TRUE(creation == lastWrite || (creation < JTime::now() && creation > lastAccess));
  EXPECT_FAILURE("FindFirstFile", ENOENT, qm_utils::getFileInfo(path("none"), nullptr));
  std::uint64_t uFree = 0;
  std::uint64_t uTotal = 0;
  std::uint64_t uAllFree = 0;
  qm_utils::getDiskFreeSpace(path(""), &uFree, &uTotal, &uAllFree);
  EXPECT_LE(uFree, uAllFree);
  EXPECT_LE(uAllFree, uTotal);
  EXPECT_GT(uTotal, 1'000'000U);
  EXPECT_FAILURE("GetDiskFreeSpaceEx", ENOENT, qm_utils::getDiskFreeSpace(path("none"), nullptr));
}

TEST_F(FileOperations, ListingsHoldWhatThePatternMeans) {
  for (const char* const szName : {"a.log", "b.log", "a[1].log", "plain"}) {
    m_dir.write(szName, "x");
  }
  fs::create_symlink("/no/such/thing", path("dangling"));
  struct {
    const char* pattern;
    std::vector<std::string> names;
  } const rows[] = {
      {"*", {".", "..", "a.log", "b.log", "a[1].log", "plain", "dangling"}},
      {"*.*", {".", "..", "a.log", "b.log", "a[1].log", "plain", "dangling"}},
      {"?.log", {"a.log", "b.log"}},
      {"a[1]*", {"a[1].log"}},
      {"none*", {}},
  };
  for (const auto& row : rows) {
    JDirectoryIterator entries(path("") + "/\\/", row.pattern);
    for (int iRound = 0; iRound < 2; ++iRound) {
      std::vector<std::string> found;
      std::uint32_t uType = 0;
      while (const char* szName = entries.next(&uType)) {
        found.emplace_back(szName);
        EXPECT_EQ(uType, found.back()[0] == '.' ? 2U : found.back() == "dangling" ? 3U : 1U) << szName;
        EXPECT_EQ(entries.isLink(), found.back() == "dangling");
      }
      EXPECT_THAT(found, testing::UnorderedElementsAreArray(row.names)) << row.pattern;
      entries.rewind();
    }
  }
  EXPECT_FAILURE("FindFirstFile", ENOENT, JDirectoryIterator(path("none"), "*").next());
  EXPECT_FAILURE("FindFirstFile", ENOTDIR, JDirectoryIterator(path("plain"), "*").next());
  EXPECT_STREQ(JDirectoryIterator("/", "tmp").next(), "tmp");
}

TEST_F(FileOperations, MakeMeasureAndRemoveTrees) {
  EXPECT_FAILURE("CreateDirectory(\"" + path("a/b") + "\")", ENOENT, qm_utils::createDirectory(path("a/b")));
  qm_utils::createDirectories(path("a//b/c/"));
  qm_utils::createDirectories(path("a/b/c"));
  m_dir.write("file", "outside");
  m_dir.write("a/one", "1");
  m_dir.write("a/b/c/three", "333");
  fs::create_directory_symlink("..", path("a/b/up"));
  fs::create_symlink(path("file"), path("a/out"));
  EXPECT_FAILURE("FindFirstFile", ENOTDIR, qm_utils::createDirectories(path("file/x")));
  std::uint64_t uTotal = 100;
  EXPECT_EQ(qm_utils::getDirectorySize(path("a"), &uTotal), 11U);  // the link to a file counts as one
  EXPECT_EQ(uTotal, 111U);
  EXPECT_FAILURE("FindFirstFile", ENOENT, qm_utils::getDirectorySize(path("none")));

  EXPECT_FAILURE("RemoveDirectory", ENOTEMPTY, qm_utils::removeDirectory(path("a"), false));
  EXPECT_FAILURE("SHFileOperation", ENOTDIR, qm_utils::removeDirectory(path("file"), true));
  failFileCall(3, FaultKind::kError, EACCES);
  EXPECT_FAILURE("SHFileOperation", EACCES, qm_utils::removeDirectory(path("a"), true));
  qm_platform::disarmFaults();
  qm_utils::removeDirectory(path("a"), true);
  EXPECT_THAT(names(), ElementsAre("file"));
  EXPECT_EQ(readFile(path("file")), "outside");
  qm_utils::createDirectory(path("empty"));
  qm_utils::removeDirectory(path("empty"), false);
  qm_utils::deleteFile(path("file"));
  EXPECT_FAILURE("DeleteFile", ENOENT, qm_utils::deleteFile(path("file")));
  EXPECT_TRUE(names().empty());
}

TEST_F(FileOperations, MoveAndCopyLeaveTheTargetOldOrNewWhateverFails) {
  // Two file systems; targets stand in the one in memory, where syncing is quick.
  const fs::path near = "/dev/shm/qm_file_operations_" + std::to_string(getpid());
  fs::create_directory(near);
  const std::string sTo = near / "to";
  const std::string sAway = path("from");
  const std::string sNew(20'000, 'n');
  struct {
    const char* name;
    void (*operation)(const std::string&, const std::string&, bool);
    std::string from;
    bool replace;
    FaultKind kind;
  } const rows[] = {
      {"move over", qm_utils::moveFile, near / "from", true, FaultKind::kError},
      {"move to nothing", qm_utils::moveFile, near / "from", false, FaultKind::kError},
      {"copy to nothing", qm_utils::copyFile, near / "from", false, FaultKind::kError},
      {"move away over", qm_utils::moveFile, sAway, true, FaultKind::kError},
      {"move away over, interrupted", qm_utils::moveFile, sAway, true, FaultKind::kInterrupt},
      {"move away over, cut short", qm_utils::moveFile, sAway, true, FaultKind::kShort},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto work = [&] {
      std::ofstream(row.from) << sNew;
      fs::permissions(row.from, fs::perms(0640));
      if (row.replace) {
        std::ofstream(sTo) << "old";
      }
      row.operation(row.from, sTo, row.replace);
    };
    const auto check = [&](const std::string& sThrown) {
      const std::string sNow = readFile(sTo);
      EXPECT_TRUE(sNow == sNew || (sNow == (row.replace ? "old" : "") && readFile(row.from) == sNew))
          << "lost";
      if (sThrown.empty() || row.kind != FaultKind::kError) {
        EXPECT_EQ(sThrown, "");
        EXPECT_EQ(sNow, sNew);
        EXPECT_EQ(fs::exists(row.from), row.operation == qm_utils::copyFile);
        EXPECT_EQ(fs::status(sTo).permissions(), fs::perms(0640));
      }
      fs::remove(sTo);
      fs::remove(row.from);
      EXPECT_TRUE(fs::is_empty(near) && names().empty());  // no work file
    };
    failEachFileCall(row.kind, EIO, work, check);
  }
  fs::remove_all(near);
}

TEST_F(FileOperations, MoveAndCopyRefuseWhatWouldDestroy) {
  m_dir.write("from", "new");
  m_dir.write("to", "old");
  fs::create_directory(path("dir"));
  fs::create_symlink("from", path("itself"));
  fs::create_symlink("to", path("link"));
  EXPECT_FAILURE("MoveFileEx", EEXIST, qm_utils::moveFile(path("from"), path("to"), false));
  EXPECT_FAILURE("CopyFile", EEXIST, qm_utils::copyFile(path("from"), path("to"), false));
  EXPECT_FAILURE("CopyFile", EINVAL, qm_utils::copyFile(path("from"), path("itself"), true));
  EXPECT_FAILURE("CopyFile", EISDIR, qm_utils::copyFile(path("from"), path("dir"), true));
  EXPECT_FAILURE("CopyFile", EINVAL, qm_utils::copyFile("/dev/null", path("to"), true));
  EXPECT_EQ(readFile(path("from")) + readFile(path("to")), "newold");
  qm_utils::copyFile(path("from"), path("link"), true);
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(readFile(path("to")), "new");
}

TEST_F(FileOperations, UpdatePutsTheNewFileInPlaceOrKeepsTheOld) {
  const std::string sPath = path("log");
  const std::string sWork = sPath + "." + std::to_string(qm_platform::threadId());
  bool bOpened = false;
  bool bReported = false;
  const auto update = [&] {
    m_dir.write("log", "old");
    std::ofstream(sWork) << "a longer leftover of this thread's number";
    fs::permissions(sPath, fs::perms(0600));
    bOpened = bReported = false;
    JFileSocket::ReplaceWithRollBack(sPath, [&](JOSocket& file) {
      bOpened = true;
      file.write("new", 3);
    });
    bReported = true;
  };
  for (const FaultKind kind : {FaultKind::kInterrupt, FaultKind::kShort, FaultKind::kError}) {
    const auto check = [&](const std::string& sThrown) {
      const std::string sNow = readFile(sPath);
      EXPECT_EQ(sThrown.empty(), bReported);
      EXPECT_TRUE(sNow == "new" || (sNow == "old" && kind == FaultKind::kError && !bReported)) << sNow;
      if (kind != FaultKind::kError) {
        EXPECT_TRUE(bReported);
        EXPECT_EQ(fs::status(sPath).permissions(), fs::perms(0600));
      }
      EXPECT_FALSE(bOpened && fs::exists(sWork));
    };
    failEachFileCall(kind, EIO, update, check);
  }
}

TEST_F(FileOperations, EndOfAnUpdateLogsAndGoesOn) {
  const std::string sPath = path("log");
  const std::string sFlush = "system call error at function 'FlushFileBuffers' : Input/output error";
  const std::string sMove = "system call error at function 'MoveFileEx' : Input/output error";
  for (const bool bFlushFails : {true, false}) {
    m_dir.write("log", "old");
    auto pSocket = JFileSocket::OpenUpdateWithRollBack(sPath);
    pSocket->write("new", 3);
    const qm_test::LogCapture log;
    failFileCall(bFlushFails ? 1 : 2, FaultKind::kError, EIO);
    JFileSocket::CloseUpdateWithRollBack(std::move(pSocket), sPath);
    EXPECT_TRUE(qm_platform::disarmFaults());
    EXPECT_EQ(readFile(sPath), bFlushFails ? "new" : "old");
    EXPECT_TRUE(log.has(10, bFlushFails ? sFlush : sMove));
    EXPECT_EQ(log.has(11, "JFileSocket::CloseUpdateWithRollBack - error " + sFlush), bFlushFails);
  }
}

TEST_F(FileOperations, OpeningClearsLeftoversButNoUpdateInWork) {
  const std::string sPath = path("log");
  m_dir.write("log", "old");
  m_dir.write("log.1234", "leftover");
  m_dir.write("log.bak", "leftover too");
  m_dir.write("logs", "another file");
  m_dir.write("mylog.1", "another file");
  fs::create_directory(path("log.d"));
  auto pUpdate = JFileSocket::OpenUpdateWithRollBack(sPath);
  pUpdate->write("new", 3);
  std::thread([&] {
    auto pSecond = JFileSocket::OpenUpdateWithRollBack(sPath);
    pSecond->write("second", 6);
    const auto pRead = JFileSocket::OpenReadWithRollBack(sPath);
    char buffer[8];
    EXPECT_EQ(std::string(buffer, pRead->read(buffer, sizeof buffer)), "old");
    JFileSocket::CloseUpdateWithRollBack(std::move(pSecond), sPath);
  }).join();
  EXPECT_EQ(readFile(sPath), "second");
  const std::string sWork = "log." + std::to_string(qm_platform::threadId());
  EXPECT_THAT(names(), testing::UnorderedElementsAre("log", "log.d", "logs", "mylog.1", sWork));
  JFileSocket::CloseUpdateWithRollBack(std::move(pUpdate), sPath);
  EXPECT_EQ(readFile(sPath), "new");
  EXPECT_FALSE(fs::exists(path(sWork)));

  m_dir.write("log.1234", "leftover");
  const qm_test::LogCapture log;
  fs::remove(sPath);
  EXPECT_FAILURE("CreateFile(\"" + sPath + "\")", ENOENT, JFileSocket::OpenReadWithRollBack(sPath));
  EXPECT_TRUE(fs::exists(path("log.1234")));
}

TEST_F(FileOperations, ReaderWaitsForAnotherThatTookTheNewFileForALeftover) {
  const std::string sPath = m_dir.write("log", "new");
  failFileCall(3, FaultKind::kError, EWOULDBLOCK);  // opened, asked about, and not locked
  const auto pRead = JFileSocket::OpenReadWithRollBack(sPath);
  EXPECT_TRUE(qm_platform::disarmFaults());
  char buffer[8];
  EXPECT_EQ(std::string(buffer, pRead->read(buffer, sizeof buffer)), "new");
}

TEST_F(FileOperations, UpdatesOutliveReadersThatClearUp) {
  const std::string sPath = "/dev/shm/qm_updates_" + std::to_string(getpid());
  std::ofstream(sPath) << std::string(1000, '0');
  std::atomic<int> iWriters = 2;
  const auto update = [&](char cText) {
    EXPECT_EQ(qm_test::fileFailure([&] {
                for (int i = 0; i < 2000; ++i) {
                  auto pSocket = JFileSocket::OpenUpdateWithRollBack(sPath);
                  pSocket->write(std::string(1000, cText).data(), 1000);
                  JFileSocket::CommitUpdateWithRollBack(std::move(pSocket), sPath);
                }
              }),
              "");
    --iWriters;
  };
  std::thread writers[] = {std::thread(update, 'a'), std::thread(update, 'b')};
  while (iWriters != 0) {
    std::string sText(2000, '\0');
    sText.resize(JFileSocket::OpenReadWithRollBack(sPath)->read(sText.data(), sText.size()));
    EXPECT_EQ(sText, std::string(1000, sText.empty() ? '0' : sText[0]));
  }
  writers[0].join();
  writers[1].join();
  fs::remove(sPath);
}

TEST_F(FileOperations, TemporaryNamesCountUpAndTheirFilesLeaveNothing) {
  char szName[16];
  qm_utils::makeTempName(szName, sizeof szName);
  EXPECT_THAT(szName, testing::MatchesRegex("[0-9A-F]{8}\\.tmp"));
  unsigned uNumber = 0;
  std::sscanf(szName, "%8X", &uNumber);
  std::snprintf(szName, sizeof szName, "%08X.tmp", uNumber + 1);
  const std::string sNext = szName;
  m_dir.write(sNext, "somebody's");
  const std::string sOld = qm_utils::getCurrentDirectory();
  qm_utils::setCurrentDirectory(path(""));
  {
    const qm_utils::StreamPointer pStream = qm_utils::openTempFile();
    ASSERT_NE(pStream, nullptr);
    std::fputs("text", pStream.get());
    std::rewind(pStream.get());
    EXPECT_EQ(std::fgetc(pStream.get()), 't');
    struct stat status {};
    fstat(fileno(pStream.get()), &status);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_THAT(names(), ElementsAre(sNext));
  }
  failFileCall(1, FaultKind::kError, EMFILE, true);
  EXPECT_EQ(qm_utils::openTempFile(), nullptr);
  qm_platform::disarmFaults();
  qm_utils::setCurrentDirectory(sOld);
  EXPECT_EQ(readFile(path(sNext)), "somebody's");
  EXPECT_FAILURE("SetCurrentDirectory", ENOENT, qm_utils::setCurrentDirectory(path("none")));
  EXPECT_FALSE(qm_utils::getTempPath().ends_with('/'));
}

}  // namespace
