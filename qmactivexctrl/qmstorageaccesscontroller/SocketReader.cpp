#include "qmactivexctrl/qmstorageaccesscontroller/SocketReader.h"

#include <algorithm>

#include "coreapi/qmutils/socket/jiosocket.h"

StorageAccessController3X4X::SocketReader::SocketReader(JISocket& socket, bool bDiscard)
    : JThread("SocketReader"), m_socket(socket), m_bDiscard(bDiscard) {
  start();
}

StorageAccessController3X4X::SocketReader::~SocketReader() {
  stop();
}

const std::string& StorageAccessController3X4X::SocketReader::getText() {
  stop();
  return m_sText;
}

void StorageAccessController3X4X::SocketReader::run() {
  char chunk[1023];
  for (std::int64_t iRead = 0; (iRead = m_socket.readNoThrow(chunk, sizeof chunk)) >= 1;) {
    if (!m_bDiscard) {
      std::replace(chunk, chunk + iRead, '\0', ' ');
      m_sText.append(chunk, static_cast<std::size_t>(iRead));
    }
  }
}
