#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "coreapi/qmutils/socket/jsocket.h"

namespace qm_platform {
struct FileOpening;
}

/// A file behind the interfaces of a channel, so that a writer, a log or a reader takes a file and a
/// connection alike. It owns its descriptor and closes it when it is destroyed. The socket of the base class
/// plays no part: it is never open, and what works on it alone (addresses, options, `readv`, `getMTU`, the
/// shutdowns) fails as on a closed socket. Time-outs are stored and have no effect.
///
/// A file is used by one thread at a time. Positions are 64 bits wide. A write takes everything or fails,
/// however often the system has to be asked; a read of a plain file ends short at its end alone. A descriptor
/// that was adopted may also be a pipe: a read then takes what there is, and a write that nobody reads is a
/// JSysError (EPIPE), never a signal.
///
/// Failures are JSysError with the `errno` value of the platform's call and the label given at each
/// operation.
class JFileSocket : public JSocket {
 public:
  /// How a file is opened. The numbers are part of the interface.
  enum Mode : int {
    kRead = 0,       ///< reads a file that exists
    kReadWrite = 1,  ///< reads and writes; a file that isn't there is made
    kWrite = 2,      ///< writes; the file is made, or emptied
    kTemporary = 3,  ///< reads and writes; made or emptied, and deleted when it is closed
  };

  /// Where an offset of `seek` counts from.
  enum Whence : int { kStart = 0, kCurrent = 1, kEnd = 2 };

  /// No file.
  JFileSocket();

  /// Opens a file by its UTF-8 path. Without `bShared` nobody else of this system may open the file
  /// meanwhile, and it can't be opened while somebody has it open; other programs are only told by an
  /// advisory lock (`flock`), and a file system without locks doesn't stop the file from opening. Throws
  /// "CreateFile("PATH")"; EAGAIN when sharing is denied, EISDIR for a directory.
  JFileSocket(const std::string& sPath, int iMode, bool bShared);

  /// Adopts an open descriptor. Throws "JFileSocket(HANDLE)" when it isn't one; it then stays the caller's.
  explicit JFileSocket(int iHandle);
  ~JFileSocket() override;

  /// "file".
  std::string getProtocol() const override;

  /// Returns the bytes read, 0 at the end of the file. Throws "ReadFile".
  std::size_t read(void* pBuffer, std::size_t uLength) override;

  /// `seek(iOffset, kCurrent)`; returns 0.
  int skip(std::int64_t iOffset) override;

  /// `seek(0, kStart)`; returns 0.
  int rewind() override;

  /// Closes the file. A second call does nothing. A failure that the system keeps until now, as file systems
  /// on other machines do with what a full disk refuses, is logged.
  void close() override;

  /// Whether closing has failed: what was written may not be in the file.
  bool hasCloseFailed() const noexcept { return m_bCloseFailed; }

  /// Writes everything and returns its length. Throws JNoSpaceLeftError "WriteFile" when the disk, a quota or
  /// the largest size of a file ends it, JSysError "WriteFile" else; what had gone out before stays in the
  /// file.
  std::size_t write(const void* pBuffer, std::size_t uLength) override;

  /// The same for several buffers in order, any number of them: one call of the system for a batch.
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;

  /// A file is never asynchronous: these write as the forms above, then call `pNotify->onComplete` (unless it
  /// is null) on this thread. Unlike on a connection a failure is thrown, and `pNotify` isn't called then.
  void write(const void* pBuffer, std::size_t uLength, JSocketAsyncIONotify* pNotify) override;
  void writev(const JIoBuf* pBuffers, std::size_t uCount, JSocketAsyncIONotify* pNotify) override;

  /// Moves the position and returns the new one, the 32-bit form its low word. Throws "SetFilePointer".
  virtual std::uint32_t seek(std::int32_t iOffset, int iWhence);
  virtual std::uint64_t seek(std::int64_t iOffset, int iWhence);

  /// The position.
  virtual std::uint64_t tell();

  /// Moves to a position and lets the file end there. Throws "SetFilePointer" and "SetEndOfFile".
  virtual void setEndOfFile(std::uint64_t uPosition);

  /// What the system knows of the file; see `qm_utils::getFileInfo`. Every pointer may be null. Throws
  /// "GetFileInformationByHandle".
  virtual void getInfo(std::uint32_t* pType, std::uint64_t* pSize = nullptr, JTime* pCreation = nullptr,
                       JTime* pLastWrite = nullptr, JTime* pLastAccess = nullptr);

  /// Returns when all that was written is on the disk. Throws "FlushFileBuffers".
  void flush();

  /// Lets the system read a part of the file into its cache meanwhile: for who goes through a file in order
  /// but reads little of it. No failure is told. From then on it no longer reads ahead of this one by itself.
  void readAhead(std::uint64_t uPosition, std::uint64_t uLength) noexcept;

  /// Maps a part of the file into memory, shared with the file, and returns its first byte; `munmap` ends it,
  /// and it may outlive the socket. The part must lie inside the file as it is now, and the file mustn't
  /// shrink while the view is in use. Throws "CreateFileMapping" (the file can't be mapped, isn't open for it
  /// or is empty), "MapViewOfFile" (EINVAL: not inside the file, or no bytes), and "mmap with length > 4GB"
  /// (ENOTSUP) when the length, with the bytes from the page's start to `uOffset`, is 4 GiB or more.
  void* mmap(std::uint64_t uOffset, std::uint64_t uLength, bool bWritable);

  /// Ends a view, of whatever file. Any thread. Throws "UnmapViewOfFile"; EINVAL for an address that `mmap`
  /// didn't return or that was ended before.
  static void munmap(const void* pAddress);

  /// The system's descriptor of the file; -1 when none is open.
  int getFileHandle() const noexcept { return m_iFile; }

  /// Small stored files are replaced as a whole: the new contents are written to a work file beside the old
  /// one, "PATH.THREAD" with the calling thread's number, which takes the old one's place at the end. Two
  /// threads may so update one path; the last to close wins. The thread that opened also closes.

  /// Opens a new work file for a path, with the permissions of the file that stands there. Throws as the
  /// constructor.
  static std::unique_ptr<JFileSocket> OpenUpdateWithRollBack(const std::string& sPath);

  /// Opens a path for reading, and deletes what interrupted updates have left: every file beside it whose
  /// name is the path's and goes on with ".", but those that somebody has open through this class, in this
  /// process or another. A failure to delete is logged. Throws as the constructor, with nothing deleted, but
  /// sharing that is denied (EAGAIN) only when that lasts for a second.
  static std::unique_ptr<JFileSocket> OpenReadWithRollBack(const std::string& sPath);

  /// Puts the work file of `OpenUpdateWithRollBack` in the path's place. A failure is logged and swallowed;
  /// the old file then stays, but for a failure to flush, after which the new one takes its place all the
  /// same.
  static void CloseUpdateWithRollBack(std::unique_ptr<JFileSocket> pSocket, const std::string& sPath);

  /// The same for those who must know: when it returns, the new file stands in the path's place and is on the
  /// disk, its name included. Throws "FlushFileBuffers" or "MoveFileEx" otherwise; the old file then stands
  /// and the work file is gone, unless nothing but the directory's flush has failed, after which the new file
  /// stands and may be lost with the power.
  static void CommitUpdateWithRollBack(std::unique_ptr<JFileSocket> pSocket, const std::string& sPath);

  /// A whole update: `write` writes the new contents. Throws what it throws, and as opening and committing; a
  /// failed update leaves no work file.
  static void ReplaceWithRollBack(const std::string& sPath, const std::function<void(JFileSocket&)>& write);

 protected:
  /// As the public constructor; `how` says what the mode doesn't. Transfers that are to go past the system's
  /// cache do so where the file system takes part.
  JFileSocket(const std::string& sPath, int iMode, qm_platform::FileOpening how);

 private:
  bool isAligned(const void* pBuffer, std::size_t uLength) const;

  /// Runs a transfer, and goes on with it through the cache where the file system refuses it past that.
  template <typename Aligned, typename Transfer>
  int transferring(Aligned aligned, Transfer transfer);

  int m_iFile = -1;
  bool m_bPlain = false;       ///< a plain file: reads are filled up, and no write raises a signal
  bool m_bUnbuffered = false;  ///< transfers go past the system's cache
  bool m_bCloseFailed = false;
  std::string m_sPath;     ///< of a file that was opened by its path, for messages
  std::string m_sDeleted;  ///< absolute path of a file that is deleted when it is closed; else empty
};
