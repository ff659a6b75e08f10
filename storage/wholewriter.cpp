#include "storage/wholewriter.h"

#include <algorithm>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

namespace {

void writeAll(JSocket& socket, const std::uint8_t* pBytes, std::size_t size) {
  while (size > 0) {
    const std::size_t taken = socket.write(pBytes, size);
    if (taken == 0 || taken > size) {
      QM_THROW(JTextError, "the output takes no more");
    }
    pBytes += taken;
    size -= taken;
  }
}

}  // namespace

/// A cut also brings the file's position back.
void WholeWriter::mend() {
  if (m_bTorn) {
    if (auto* const pFile = dynamic_cast<JFileSocket*>(&m_socket)) {
      pFile->setEndOfFile(m_uEnd);
    }
    m_bTorn = false;
  }
}

void WholeWriter::append(std::span<const JIoBuf> bufs) {
  mend();
  m_bTorn = true;
  std::size_t taken = m_socket.writev(bufs.data(), bufs.size());
  std::uint64_t uSize = 0;
  for (const JIoBuf& buf : bufs) {
    const std::size_t done = std::min<std::size_t>(taken, buf.bufLength);
    taken -= done;
    if (done < buf.bufLength) {
      writeAll(m_socket, static_cast<const std::uint8_t*>(buf.pBuf) + done, buf.bufLength - done);
    }
    uSize += buf.bufLength;
  }
  m_bTorn = false;
  m_uEnd += uSize;
}

void WholeWriter::append(const void* pBytes, std::size_t size) {
  mend();
  m_bTorn = true;
  writeAll(m_socket, static_cast<const std::uint8_t*>(pBytes), size);
  m_bTorn = false;
  m_uEnd += size;
}

void WholeWriter::appendAsync(std::span<const JIoBuf> bufs, JSocketAsyncIONotify& notify) {
  mend();
  m_socket.writev(bufs.data(), bufs.size(), &notify);
}

bool WholeWriter::overwriteStart(std::span<const std::uint8_t> bytes) {
  mend();
  if (m_socket.rewind() != 0) {
    return false;
  }
  writeAll(m_socket, bytes.data(), bytes.size());
  return true;
}
