#include "qmmanager/copypush.h"

#include <exception>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "qmmanager/copysender.h"

namespace qm_manager {

/// The connection, which `abort` can close as long as it exists.
class CopyPush::Connection : public JTCPSocket {
 public:
  explicit Connection(CopyPush& push) : m_push(push) {
    setConnectTimeout(push.m_limits.iConnect);
    setWriteTimeout(push.m_limits.iStall);
    const JAutoLock lock(m_push.m_mutex);
    m_push.m_pOpen = this;
  }
  ~Connection() override {
    const JAutoLock lock(m_push.m_mutex);
    m_push.m_pOpen = nullptr;
  }

  /// From now on closing is no reset: the client may still have to read what was sent.
  void shutdownWrite() override {
    JTCPSocket::shutdownWrite();
    control("setsockopt", qm_platform::setSendOnClose);
  }

 protected:
  /// Whoever takes something now and then may take as long as it wants to.
  void checkWriteTime(std::int64_t /*iStart*/, const char* /*szOperation*/) const override {}

 private:
  CopyPush& m_push;
};

namespace {

/// Sends what is on its way still, and closes without the marker.
void breakOff(CopySender& sender, JTCPSocket& connection) {
  try {
    sender.cut();
    connection.shutdownWrite();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);  // the connection is what has failed
  } catch (const std::exception&) {
    // Without memory nothing more goes out.
  }
}

}  // namespace

CopyPush::CopyPush(std::unique_ptr<RecordedFrames> pFrames, const qm_stream::StreamProtocol& protocol,
                   const Limits& limits)
    : JThread("CopyPush"), m_pFrames(std::move(pFrames)), m_protocol(protocol), m_limits(limits) {
  m_pConnection = std::make_unique<Connection>(*this);
}

CopyPush::~CopyPush() {
  abort();
  stop();
}

void CopyPush::connect(const JInetAddr& client) {
  m_pConnection->connect(client);
}

void CopyPush::abort() noexcept {
  m_bAborted = true;
  const JAutoLock lock(m_mutex);
  if (m_pOpen != nullptr) {
    m_pOpen->close();
  }
}

void CopyPush::run() {
  try {
    push();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogWarning, "A copy has been broken off: %s\n", error->getMessage().c_str());
  } catch (const std::exception& exception) {
    qm_err::log(qm_err::kLogError, "A copy has been broken off: %s\n", exception.what());
  }
  m_pConnection.reset();  // where it didn't come to a stream: the client needn't wait for one
  m_bDone = true;
}

/// The whole stream; its end waits for the client.
void CopyPush::push() {
  Connection& connection = *m_pConnection;
  CopySender sender(m_protocol, std::move(m_pConnection));
  try {
    sender.sendDescription(m_pFrames->getDescription());
    for (;;) {
      switch (m_pFrames->next()) {
        case RecordedFrames::Next::kDescription:
          sender.sendDescription(m_pFrames->getDescription());
          break;
        case RecordedFrames::Next::kFrame:
          sender.sendFrame(m_pFrames->getFrame());
          break;
        case RecordedFrames::Next::kEnd:
          if (m_pFrames->isCut()) {
            QM_THROW(JTextError, "the recording can't be read to its end");
          }
          return;
      }
      if (m_bAborted) {
        QM_THROW(JTextError, "the Manager stops");
      }
    }
  } catch (...) {  // for want of memory, too: whatever has failed, the stream gets no marker
    breakOff(sender, connection);
    throw;
  }
}

}  // namespace qm_manager
