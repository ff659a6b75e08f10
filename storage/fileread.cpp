#include "storage/fileread.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <new>

#include "coreapi/qmutils/error/jerror.h"

std::vector<std::uint8_t> makeHeadBytes(std::size_t uSize) {
  try {
    return std::vector<std::uint8_t>(uSize);
  } catch (const std::bad_alloc&) {
    QM_THROW(JTextError, "out of memory");
  }
}

#include "coreapi/platform/filestatus.h"
#include "coreapi/qmutils/error/jerror.h"

void checkNoPipe(const std::string& sPath) {
  qm_platform::FileStatus status;
  if (qm_platform::statusOfPath(sPath, status) == 0 && status.kind == qm_platform::FileKind::kOther) {
    QM_THROW(JTextError, "\"%s\" is no plain file", sPath.c_str());
  }
}

bool skipBytes(JISocket& socket, std::uint64_t uSize) {
  if (uSize == 0) {
    return true;
  }
  if (uSize > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return false;
  }
  if (socket.skip(static_cast<std::int64_t>(uSize)) == 0) {
    return true;
  }
  std::array<std::uint8_t, 8192> waste;
  while (uSize > 0) {
    const std::size_t uRead =
        socket.read(waste.data(), static_cast<std::size_t>(std::min<std::uint64_t>(uSize, waste.size())));
    if (uRead == 0) {
      return false;
    }
    uSize -= uRead;
  }
  return true;
}

std::size_t FileHeadReader::read(void* pBuffer, std::size_t uSize) {
  const std::size_t uFromFront = std::min(uSize, m_front.size() - m_uFrontTaken);
  if (uFromFront > 0) {
    std::memcpy(pBuffer, m_front.data() + m_uFrontTaken, uFromFront);
    m_uFrontTaken += uFromFront;
  }
  const std::size_t uRead =
      uFromFront +
      qm_utils::readFully(m_socket, static_cast<std::uint8_t*>(pBuffer) + uFromFront, uSize - uFromFront);
  m_uPosition += uRead;
  return uRead;
}

bool FileHeadReader::skip(std::uint64_t uSize) {
  const std::size_t uFromFront =
      static_cast<std::size_t>(std::min<std::uint64_t>(uSize, m_front.size() - m_uFrontTaken));
  m_uFrontTaken += uFromFront;
  m_uPosition += uSize;
  return skipBytes(m_socket, uSize - uFromFront);
}
