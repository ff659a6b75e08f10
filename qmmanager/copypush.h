#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "coreapi/qmstream/streamfactory.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "qmmanager/recordedframes.h"

class JInetAddr;
class JTCPSocket;

namespace qm_manager {

/// One copy on its way to a client: connects, and then pushes the frames on a thread of its own.
///
/// The stream gets its end marker only when every recorded frame has gone out. A copy whose last frames can't
/// be read sends what there is and closes in order, so that the client has all of it and knows that it isn't
/// whole. Either way what has been sent still reaches a client that is slow to read it.
///
/// `connect` and `start` belong to the owner; `abort` and `isDone` may come from any thread.
class CopyPush : public JThread {
 public:
  /// What a client may keep a copy waiting for, in milliseconds.
  struct Limits {
    std::int32_t iConnect = 2000;  ///< until its connection stands; below what its own call waits
    std::int32_t iStall = 30'000;  ///< without having taken a byte
  };

  /// The frames stand at their first description. The row of the protocol is one of the table.
  CopyPush(std::unique_ptr<RecordedFrames> pFrames, const qm_stream::StreamProtocol& protocol,
           const Limits& limits);

  /// Aborts and waits for the thread.
  ~CopyPush() override;

  /// Connects to the client. Throws what connecting throws.
  void connect(const JInetAddr& client);

  /// Ends it wherever it stands: waiting for the connection, reading or writing.
  void abort() noexcept;

  /// Whether the thread has done its work: stopping it takes no time then.
  bool isDone() const noexcept { return m_bDone; }

  void run() override;

 private:
  class Connection;

  void push();

  const std::unique_ptr<RecordedFrames> m_pFrames;
  const qm_stream::StreamProtocol& m_protocol;
  const Limits m_limits;
  JMutex m_mutex;                             ///< over the next one; nothing else is locked under it
  JTCPSocket* m_pOpen = nullptr;              ///< what `abort` closes
  std::unique_ptr<Connection> m_pConnection;  ///< until the stream takes it over
  std::atomic<bool> m_bAborted{false};
  std::atomic<bool> m_bDone{false};
};

}  // namespace qm_manager
