#include "coreapi/platform/filecontents.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/systemcall.h"

namespace qm_platform {

namespace {

constexpr std::size_t kPiece = 64 * 1024;

/// Reads to the end, or to one byte beyond the limit.
int readToEnd(int descriptor, std::size_t limit, std::vector<std::uint8_t>& contents) {
  std::size_t length = 0;
  for (;;) {
    contents.resize(std::min(length + kPiece, limit + 1));
    const std::size_t wanted = contents.size() - length;
    std::size_t count = 0;
    const int error = readFile(descriptor, contents.data() + length, wanted, 1, count);
    if (error != 0) {
      return error;
    }
    length += count;
    if (length > limit) {
      return EFBIG;
    }
    if (count < wanted) {
      contents.resize(length);
      return 0;
    }
  }
}

}  // namespace

int readFileContents(const std::string& path, std::size_t limit, std::vector<std::uint8_t>& contents) {
  contents.clear();
  int error = 0;
  const int descriptor =
      uninterrupted(error, [&](bool) { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
  if (error != 0) {
    return error;
  }
  error = readToEnd(descriptor, limit, contents);
  ::close(descriptor);  // nothing was written: it has nothing to report
  if (error != 0) {
    contents.clear();
  }
  return error;
}

}  // namespace qm_platform
