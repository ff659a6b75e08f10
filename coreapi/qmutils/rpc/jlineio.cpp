#include "coreapi/qmutils/rpc/jlineio.h"

#include <algorithm>
#include <span>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmutils/socket/jiosocket.h"
#include "coreapi/qmutils/socket/readfully.h"

namespace {

/// Room that a write buffer keeps from one line to the next; what a larger line took is given back.
constexpr std::size_t kKeptWriteRoom = std::size_t{1} << 20;

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

/// What is left of a reader's time-out.
class LineWait {
 public:
  explicit LineWait(std::int32_t iTimeout) noexcept
      : m_iTimeout(iTimeout), m_iStart(iTimeout < 0 ? 0 : qm_platform::steadyClockNanoseconds()) {}

  /// Milliseconds for the next read of the channel, -1 for ever. Throws JTimeoutError when nothing is left;
  /// the first read always has its turn, if only to look what is there.
  std::int32_t forNextRead() {
    if (m_iTimeout < 0) {
      return -1;
    }
    const std::int64_t iLeft =
        m_iTimeout - (qm_platform::steadyClockNanoseconds() - m_iStart) / kNanosecondsPerMillisecond;
    if (iLeft <= 0 && !m_bFirst) {
      QM_THROW(JTimeoutError);
    }
    m_bFirst = false;
    return static_cast<std::int32_t>(std::max<std::int64_t>(iLeft, 0));
  }

  void arrived(std::size_t uBytes) noexcept {
    m_uBytes += uBytes;
    if (m_iTimeout >= 0 && m_uBytes >= JLineIO::kRenewalBytes) {
      m_uBytes = 0;
      m_iStart = qm_platform::steadyClockNanoseconds();
    }
  }

 private:
  std::int32_t m_iTimeout;
  std::int64_t m_iStart;
  std::size_t m_uBytes = 0;
  bool m_bFirst = true;
};

/// Puts a channel's read time-out back, whatever happens.
class ReadTimeoutGuard {
 public:
  explicit ReadTimeoutGuard(JIoSocket& socket) noexcept : m_socket(socket) {}
  ~ReadTimeoutGuard() { m_socket.setReadTimeout(-1); }
  ReadTimeoutGuard(const ReadTimeoutGuard&) = delete;
  ReadTimeoutGuard& operator=(const ReadTimeoutGuard&) = delete;

 private:
  JIoSocket& m_socket;
};

}  // namespace

JLineIO::JLineIO(std::size_t uLineLimit) : m_lines(uLineLimit) {}

JLineIO::~JLineIO() {
  setSocket(nullptr, false);
}

void JLineIO::setSocket(JIoSocket* pSocket, bool bOwns) {
  if (m_bOwnsSocket && m_pSocket != pSocket) {
    // Both halves have a virtual destructor of their own; either destroys the whole object.
    delete m_pSocket;
  }
  m_pSocket = pSocket;
  m_bOwnsSocket = bOwns;
  m_lines.clear();
}

JIoSocket& JLineIO::socket() const {
  if (m_pSocket == nullptr) {
    QM_THROW(JTextError, "JLineIO has no socket");
  }
  return *m_pSocket;
}

std::string& JLineIO::beginLine() noexcept {
  if (m_sWrite.capacity() > kKeptWriteRoom) {
    m_sWrite = std::string();
  }
  m_sWrite.clear();
  return m_sWrite;
}

void JLineIO::checkBuiltLine() const {
  if (!qm_utils::rpc_line::isOneLine(m_sWrite)) {
    QM_THROW(JTextError, "JLineIO can't send a line break or a NUL inside a line");
  }
}

void JLineIO::writeBuiltLine() {
  /// The text without its end stays what was built, also when the channel throws.
  struct LineEnd {
    std::string& sLine;
    explicit LineEnd(std::string& sBuilt) : sLine(sBuilt.append("\r\n")) {}
    ~LineEnd() { sLine.resize(sLine.size() - 2); }
  };
  JIoSocket& target = socket();
  const LineEnd end(m_sWrite);
  std::size_t uSent = 0;
  while (uSent < m_sWrite.size()) {
    const std::size_t uTaken = target.write(m_sWrite.data() + uSent, m_sWrite.size() - uSent);
    if (uTaken == 0) {
      QM_THROW(JTextError, "JLineIO's socket takes no more");
    }
    uSent += uTaken;
  }
}

void JLineIO::writeLine(std::string_view sText) {
  beginLine().append(sText);
  checkBuiltLine();
  writeBuiltLine();
}

/// Reads from the channel once. 0 at its end.
std::size_t JLineIO::fill(JIoSocket& source) {
  const std::span<char> room = m_lines.makeRoom();
  const std::size_t uArrived = source.read(room.data(), room.size());
  m_lines.addFilled(uArrived);
  return uArrived;
}

std::optional<std::string_view> JLineIO::readLine() {
  JIoSocket& source = socket();
  for (;;) {
    if (const auto line = m_lines.takeLine()) {
      return line;
    }
    if (fill(source) == 0) {
      return std::nullopt;
    }
  }
}

std::optional<std::string_view> JLineIO::readLine(std::int32_t iTimeout) {
  JIoSocket& source = socket();
  const ReadTimeoutGuard guard(source);
  LineWait wait(iTimeout);
  for (;;) {
    if (const auto line = m_lines.takeLine()) {
      return line;
    }
    source.setReadTimeout(wait.forNextRead());
    const std::size_t uArrived = fill(source);
    if (uArrived == 0) {
      return std::nullopt;
    }
    wait.arrived(uArrived);
  }
}

std::size_t JLineIO::readBytes(void* pBuffer, std::size_t uSize) {
  JIoSocket& source = socket();
  auto* const pBytes = static_cast<char*>(pBuffer);
  const std::size_t uDone = m_lines.takeBytes(pBytes, uSize);
  return uDone + qm_utils::readFully(source, pBytes + uDone, uSize - uDone);
}
