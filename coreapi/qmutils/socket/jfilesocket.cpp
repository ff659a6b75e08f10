#include "coreapi/qmutils/socket/jfilesocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <utility>

#include "coreapi/platform/brokenpipe.h"
#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/filepath.h"
#include "coreapi/platform/filestatus.h"
#include "coreapi/platform/systemerror.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/filemessages.h"

using qm_platform::FileAccess;
using qm_platform::FileBuffer;
using qm_platform::FileCreation;

namespace {

constexpr const char* kWriteLabel = "WriteFile";

std::string createLabel(const std::string& sPath) {
  return "CreateFile(\"" + sPath + "\")";
}

/// What a mode asks of the system; false when there is no such mode.
bool setMode(int iMode, qm_platform::FileOpening& how) noexcept {
  struct Row {
    int iMode;
    FileAccess access;
    FileCreation creation;
  };
  static constexpr Row kRows[] = {
      {JFileSocket::kRead, FileAccess::kRead, FileCreation::kExisting},
      {JFileSocket::kReadWrite, FileAccess::kReadWrite, FileCreation::kAlways},
      {JFileSocket::kWrite, FileAccess::kWrite, FileCreation::kEmptied},
      {JFileSocket::kTemporary, FileAccess::kReadWrite, FileCreation::kEmptied},
  };
  const auto* const pRow =
      std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& row) { return row.iMode == iMode; });
  if (pRow == std::end(kRows)) {
    return false;
  }
  how.access = pRow->access;
  how.creation = pRow->creation;
  return true;
}

/// Keeps a write to a pipe that nobody reads from raising a signal; a plain file needs nothing.
class NoSignal {
 public:
  explicit NoSignal(bool bPlain) noexcept {
    if (!bPlain) {
      m_guard.emplace();
    }
  }

 private:
  std::optional<qm_platform::BrokenPipeGuard> m_guard;
};

[[noreturn]] void failWrite(int iError) {
  if (iError == ENOSPC || iError == EDQUOT || iError == EFBIG) {
    QM_THROW(JNoSpaceLeftError, static_cast<std::uint32_t>(iError), kWriteLabel);
  }
  qm_utils::failFile(iError, kWriteLabel);
}

/// Writes buffers, any number of them, from `uSkip` bytes on; `uDone` grows by what goes out.
int writeBuffers(int iFile, const JIoBuf* pBuffers, std::size_t uCount, std::size_t uSkip,
                 std::size_t& uDone) noexcept {
  std::array<FileBuffer, qm_platform::kMaxFileBuffers> batch;
  std::size_t uNext = 0;
  while (uNext < uCount) {
    std::size_t uUsed = 0;
    for (; uUsed < batch.size() && uNext < uCount; ++uNext) {
      const JIoBuf& buffer = pBuffers[uNext];
      const std::size_t uPassed = std::min<std::size_t>(uSkip, buffer.bufLength);
      uSkip -= uPassed;
      if (uPassed < buffer.bufLength) {
        batch[uUsed++] = {static_cast<const char*>(buffer.pBuf) + uPassed, buffer.bufLength - uPassed};
      }
    }
    std::size_t uWritten = 0;
    const int iError = qm_platform::writeGathered(iFile, std::span(batch.data(), uUsed), uWritten);
    uDone += uWritten;
    if (iError != 0) {
      return iError;
    }
  }
  return 0;
}

}  // namespace

JFileSocket::JFileSocket() = default;

JFileSocket::JFileSocket(const std::string& sPath, int iMode, bool bShared)
    : JFileSocket(sPath, iMode, {.exclusive = !bShared}) {}

JFileSocket::JFileSocket(const std::string& sPath, int iMode, qm_platform::FileOpening how) : m_sPath(sPath) {
  std::string sAbsolute;
  int iError = setMode(iMode, how) ? 0 : EINVAL;
  if (iError == 0 && iMode == kTemporary) {
    iError = qm_platform::absolutePath(sPath, sAbsolute);
  }
  qm_platform::OpenedFile file;
  iError = iError != 0 ? iError : qm_platform::openFile(sPath, how, file);
  if (iError != 0) {
    qm_utils::failFile(iError, createLabel(sPath));
  }
  m_iFile = file.descriptor;
  m_bPlain = file.plain;
  m_bUnbuffered = file.unbuffered;
  m_sDeleted = std::move(sAbsolute);
  if (how.unbuffered && !file.unbuffered) {
    qm_err::log(qm_err::kLogWarning, "No direct I/O on \"%s\": the file system refuses it", sPath.c_str());
  }
}

JFileSocket::JFileSocket(int iHandle) {
  qm_platform::OpenedFile file;
  qm_utils::checkFile(qm_platform::describeDescriptor(iHandle, file), "JFileSocket(HANDLE)");
  m_iFile = iHandle;
  m_bPlain = file.plain;
}

JFileSocket::~JFileSocket() {
  JFileSocket::close();
}

std::string JFileSocket::getProtocol() const {
  return "file";
}

void JFileSocket::close() {
  const int iFile = std::exchange(m_iFile, qm_platform::kNoDescriptor);
  if (iFile == qm_platform::kNoDescriptor) {
    return;
  }
  const int iDeleteError = m_sDeleted.empty() ? 0 : qm_platform::deleteOpened(iFile, m_sDeleted);
  const int iCloseError = qm_platform::closeDescriptor(iFile);
  m_bCloseFailed = iCloseError != 0;
  for (const int iError : {iDeleteError, iCloseError}) {
    if (iError != 0) {
      qm_err::log(qm_err::kLogError, "JFileSocket::close - error on \"%s\": %s", m_sPath.c_str(),
                  qm_platform::systemErrorText(static_cast<unsigned>(iError)).c_str());
    }
  }
}

bool JFileSocket::isAligned(const void* pBuffer, std::size_t uLength) const {
  const std::uint32_t uAlignment = std::max(getAlignment(), 1U);
  return reinterpret_cast<std::uintptr_t>(pBuffer) % uAlignment == 0 && uLength % uAlignment == 0;
}

template <typename Aligned, typename Transfer>
int JFileSocket::transferring(Aligned aligned, Transfer transfer) {
  const int iError = transfer();
  // Buffers as the caller was told to make them: then it is the file system that wants them otherwise.
  if (iError != EINVAL || !m_bUnbuffered || !aligned()) {
    return iError;
  }
  qm_platform::endUnbuffered(m_iFile);
  m_bUnbuffered = false;
  qm_err::log(qm_err::kLogWarning, "No direct I/O on \"%s\" any more: the file system refuses it",
              m_sPath.c_str());
  return transfer();
}

std::size_t JFileSocket::read(void* pBuffer, std::size_t uLength) {
  std::size_t uDone = 0;
  const auto transfer = [&] {
    std::size_t uGot = 0;
    char* const pRest = static_cast<char*>(pBuffer) + uDone;
    const std::size_t uGranule = m_bUnbuffered ? std::max(getAlignment(), 1U) : 1;
    const int iError = m_bPlain ? qm_platform::readFile(m_iFile, pRest, uLength - uDone, uGranule, uGot)
                                : qm_platform::readSome(m_iFile, pRest, uLength, uGot);
    uDone += uGot;
    return iError;
  };
  qm_utils::checkFile(transferring([&] { return isAligned(pBuffer, uLength); }, transfer), "ReadFile");
  return uDone;
}

int JFileSocket::skip(std::int64_t iOffset) {
  seek(iOffset, kCurrent);
  return 0;
}

int JFileSocket::rewind() {
  seek(std::int64_t{0}, kStart);
  return 0;
}

std::size_t JFileSocket::write(const void* pBuffer, std::size_t uLength) {
  std::size_t uDone = 0;
  const NoSignal noSignal(m_bPlain);
  const auto transfer = [&] {
    std::size_t uWritten = 0;
    const int iError =
        qm_platform::writeAll(m_iFile, static_cast<const char*>(pBuffer) + uDone, uLength - uDone, &uWritten);
    uDone += uWritten;
    return iError;
  };
  const int iError = transferring([&] { return isAligned(pBuffer, uLength); }, transfer);
  if (iError != 0) {
    failWrite(iError);
  }
  return uDone;
}

std::size_t JFileSocket::writev(const JIoBuf* pBuffers, std::size_t uCount) {
  std::size_t uDone = 0;
  const NoSignal noSignal(m_bPlain);
  const auto aligned = [&] {
    return std::all_of(pBuffers, pBuffers + uCount,
                       [this](const JIoBuf& buffer) { return isAligned(buffer.pBuf, buffer.bufLength); });
  };
  const int iError =
      transferring(aligned, [&] { return writeBuffers(m_iFile, pBuffers, uCount, uDone, uDone); });
  if (iError != 0) {
    failWrite(iError);
  }
  return uDone;
}

void JFileSocket::write(const void* pBuffer, std::size_t uLength, JSocketAsyncIONotify* pNotify) {
  const std::size_t uBytes = write(pBuffer, uLength);
  if (pNotify != nullptr) {
    pNotify->onComplete(uBytes);
  }
}

void JFileSocket::writev(const JIoBuf* pBuffers, std::size_t uCount, JSocketAsyncIONotify* pNotify) {
  const std::size_t uBytes = writev(pBuffers, uCount);
  if (pNotify != nullptr) {
    pNotify->onComplete(uBytes);
  }
}

std::uint32_t JFileSocket::seek(std::int32_t iOffset, int iWhence) {
  return static_cast<std::uint32_t>(seek(std::int64_t{iOffset}, iWhence));
}

std::uint64_t JFileSocket::seek(std::int64_t iOffset, int iWhence) {
  std::uint64_t uPosition = 0;
  qm_utils::checkFile(qm_platform::seekFile(m_iFile, iOffset, iWhence, uPosition), "SetFilePointer");
  return uPosition;
}

std::uint64_t JFileSocket::tell() {
  return seek(std::int64_t{0}, kCurrent);
}

void JFileSocket::setEndOfFile(std::uint64_t uPosition) {
  if (!std::in_range<std::int64_t>(uPosition)) {
    qm_utils::failFile(EINVAL, "SetFilePointer");
  }
  seek(static_cast<std::int64_t>(uPosition), kStart);
  qm_utils::checkFile(qm_platform::truncateFile(m_iFile, uPosition), "SetEndOfFile");
}

void JFileSocket::getInfo(std::uint32_t* pType, std::uint64_t* pSize, JTime* pCreation, JTime* pLastWrite,
                          JTime* pLastAccess) {
  qm_platform::FileStatus status;
  qm_utils::checkFile(qm_platform::statusOfFile(m_iFile, status), "GetFileInformationByHandle");
  qm_utils::giveFileInfo(status, pType, pSize, pCreation, pLastWrite, pLastAccess);
}

void JFileSocket::readAhead(std::uint64_t uPosition, std::uint64_t uLength) noexcept {
  qm_platform::readFileAhead(m_iFile, uPosition, uLength);
}

void JFileSocket::flush() {
  qm_utils::checkFile(qm_platform::syncDescriptor(m_iFile), "FlushFileBuffers");
}
