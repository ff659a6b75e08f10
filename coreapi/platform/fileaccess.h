#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// Opening and transferring of files. Every operation reports 0, or the `errno` value of what failed; an
/// interrupted call is taken up again and a short count is gone on from. Any thread.
namespace qm_platform {

enum class FileAccess { kRead, kWrite, kReadWrite };

enum class FileCreation {
  kExisting,  ///< the file must be there
  kAlways,    ///< it is made when it isn't
  kEmptied,   ///< it is made, or emptied
  kNew,       ///< it must not be there
};

/// How a file is to be opened.
struct FileOpening {
  FileAccess access = FileAccess::kRead;
  FileCreation creation = FileCreation::kExisting;
  bool exclusive = false;            ///< nobody else of this system may have it open at the same time
  bool waiting = false;              ///< waits for another's lock to go, instead of EAGAIN
  bool unbuffered = false;           ///< transfers go past the system's cache
  std::uint32_t permissions = 0666;  ///< of a file that is made, less the process's mask
};

/// A file that was opened.
struct OpenedFile {
  int descriptor = -1;
  bool plain = false;       ///< a plain file: it has a position and an end, and a write raises no signal
  bool unbuffered = false;  ///< as it was asked for; false where the file system refuses
};

/// A buffer of a gathering call, in the layout that the system's own record has.
struct FileBuffer {
  const void* data;
  std::size_t size;
};

/// Most buffers that one gathering call of the system takes.
constexpr std::size_t kMaxFileBuffers = 512;

/// Opens a file, close-on-exec, for sequential use. Everyone who opens a plain file here holds an advisory
/// lock on it (`flock`): EAGAIN when another's doesn't allow it; a file system without locks lets all pass.
/// A file that is open can't be taken for a leftover by `removeUnused`. EISDIR for a directory. `file` is
/// closed after a failure.
int openFile(const std::string& path, const FileOpening& how, OpenedFile& file) noexcept;

/// Tells what an open descriptor stands for; EBADF when it stands for nothing.
int describeDescriptor(int descriptor, OpenedFile& file) noexcept;

/// Lets the transfers of an unbuffered file go through the system's cache from now on.
int endUnbuffered(int descriptor) noexcept;

/// Reads until `size` bytes are there or the file ends; `done` takes the number, after a failure as well. A
/// count that isn't a multiple of `granule` means the end too: an unbuffered file can't go on from there.
int readFile(int descriptor, void* to, std::size_t size, std::size_t granule, std::size_t& done) noexcept;

/// Reads once what is there, and waits for it on a non-blocking descriptor; 0 bytes are the end.
int readSome(int descriptor, void* to, std::size_t size, std::size_t& done) noexcept;

/// Writes all of the buffers, `kMaxFileBuffers` at most; `done` takes the bytes that went out, after a
/// failure as well.
int writeGathered(int descriptor, std::span<const FileBuffer> buffers, std::size_t& done) noexcept;

/// Moves the position; `whence` as the system counts it: 0 start, 1 current, 2 end.
int seekFile(int descriptor, std::int64_t offset, int whence, std::uint64_t& position) noexcept;

/// Lets the system read a part of a file into its cache, without waiting for it. It may take less, and
/// nothing is told. From then on it no longer reads ahead on this descriptor by itself.
void readFileAhead(int descriptor, std::uint64_t position, std::uint64_t size) noexcept;

/// Lets a file end at a position.
int truncateFile(int descriptor, std::uint64_t position) noexcept;

/// Returns when a file, or a directory's list of names, is on the disk. What can't be synced counts as done.
int syncDescriptor(int descriptor) noexcept;
int syncDirectoryOf(const std::string& path);

/// Deletes the file at a path if it is the one that the descriptor stands for.
int deleteOpened(int descriptor, const std::string& path) noexcept;

/// Deletes a plain file unless somebody has it open through `openFile`, in any process: EAGAIN then.
int removeUnused(const std::string& path) noexcept;

/// Gives an open file the permissions of the one at a path, if there is one.
int takePermissions(int descriptor, const std::string& path) noexcept;

}  // namespace qm_platform
