#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/time/jtime.h"

namespace qm_platform {
struct FileStatus;
}

namespace qm_utils {

/// Throws a failed call on a file: JSysError with an `errno` value and the label of the call. Any thread.
[[noreturn]] void failFile(int iError, const std::string& sFunction);

/// The same unless the value is 0.
inline void checkFile(int iError, const char* szFunction) {
  if (iError != 0) {
    failFile(iError, szFunction);
  }
}

/// Gives out what the system told of a file. Every pointer may be null. Any thread.
void giveFileInfo(const qm_platform::FileStatus& status, std::uint32_t* pType, std::uint64_t* pSize,
                  JTime* pCreation, JTime* pLastWrite, JTime* pLastAccess) noexcept;

/// Takes the separators off the end of a path, "/" and "\", as long as it has `uShortest` characters.
std::string withoutLastSeparators(std::string sPath, std::size_t uShortest);

}  // namespace qm_utils
