#pragma once

#include <string>

#include "coreapi/qmutils/thread/jthread.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"

class JISocket;

/// Collects what a child writes on one of its streams, or drops it, so that a full pipe doesn't block the
/// child.
class StorageAccessController3X4X::SocketReader : public JThread {
 public:
  /// Starts reading. The socket outlives this. Throws what `JThread::start` throws.
  SocketReader(JISocket& socket, bool bDiscard);

  /// Waits for the end of the stream.
  ~SocketReader() override;

  /// Waits for the end of the stream; what came, with a blank in the place of each NUL.
  const std::string& getText();

  void run() override;

 private:
  JISocket& m_socket;
  bool m_bDiscard;
  std::string m_sText;
};
