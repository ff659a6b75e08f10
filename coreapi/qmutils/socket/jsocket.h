#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/platform/socketcalls.h"
#include "coreapi/platform/sockethandle.h"
#include "coreapi/qmutils/socket/jiosocket.h"

/// A socket's number that an object takes over: a type of its own, so that no port is taken for one.
struct JSocketNumber {
  int iNumber = -1;
};

/// A channel over one socket of the operating system, which it owns and closes when it is destroyed. IPv4.
///
/// One thread may read while another writes; time-outs are plain fields for them. `close` may come from any
/// thread at any time: whoever is inside a call is woken for certain and gets a `JSysError` with the number
/// 10004 (an accept ends without a connection), and the system's number isn't given back before they have all
/// left. The object itself must outlive every call on it. After `close` every operation fails with 10038.
///
/// Each operation is one system call when it needn't wait.
class JSocket : public JTraceableObject, public JIoSocket {
 public:
  /// No socket. The name `kDefaultName` stands for "JSocket". The mask word, which may be null, stays the
  /// caller's.
  explicit JSocket(std::uint32_t* pTraceMask = nullptr, const std::string& sName = kDefaultName);

  /// Adopts a socket.
  explicit JSocket(JSocketNumber handle, std::uint32_t* pTraceMask = nullptr,
                   const std::string& sName = kDefaultName);
  ~JSocket() override;

  std::uint32_t* getTraceMask() const override;
  const std::string& getName() const override;
  bool isTraceEnabled(std::uint32_t uBits) const override;
  [[gnu::format(printf, 2, 3)]] void trace(const char* szFormat, ...) const override;

  /// Throw JSysError "getsockname" and "getpeername".
  std::unique_ptr<JSockAddr> getLocalAddress() const override;
  std::unique_ptr<JSockAddr> getRemoteAddress() const override;

  void setReadTimeout(std::int32_t iMilliseconds) override;
  std::int32_t getReadTimeout() const override;

  /// What the path of a connection lets a segment carry, 24 at least; the largest datagram on the others.
  std::uint32_t getMTU() const override;
  std::string getProtocol() const override;

  /// Throws JTimeoutError when nothing comes within the read time-out, JSysError "recv" else; so for a
  /// datagram larger than the buffer, whose rest is lost.
  std::size_t read(void* pBuffer, std::size_t uLength) override;

  /// As `read`, with the label "WSARecv", and JBufferSizeError for a datagram larger than the buffers. At
  /// most `JIoBufIterator::kCapacity` buffers, else JSysError with the number 10022; so in `writev`.
  std::size_t readv(JIoBuf* pBuffers, std::size_t uCount) override;

  void close() override;

  /// Throw JSysError "shutdown".
  void shutdownRead() override;
  void shutdownWrite() override;

  /// A time-out of 0 is stored too, but logged as an error.
  void setWriteTimeout(std::int32_t iMilliseconds) override;
  std::int32_t getWriteTimeout() const override;

  using JOSocket::write;
  using JOSocket::writev;

  /// Throws JTimeoutError when nothing can be taken within the write time-out, JSysError "send" else.
  std::size_t write(const void* pBuffer, std::size_t uLength) override;

  /// As `write`, with the label "WSASend".
  std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) override;

  /// The options of the system. Throw JSysError "getsockopt" and "setsockopt".
  virtual void getOption(int iLevel, int iName, void* pValue, int& iLength) const;
  virtual void setOption(int iLevel, int iName, const void* pValue, int iLength);

  /// Throws JSysError "bind".
  virtual void bind(const JSockAddr& address);

  /// How long `connect` and `accept` of a stream socket wait.
  virtual void setConnectTimeout(std::int32_t iMilliseconds);
  virtual std::int32_t getConnectTimeout() const;
  virtual void setAcceptTimeout(std::int32_t iMilliseconds);
  virtual std::int32_t getAcceptTimeout() const;

  /// The system's number of the socket; -1 when there is none or it was closed.
  int getHandle() const noexcept { return m_handle.number(); }

  /// The name of this machine.
  static std::string getHostName();

  /// Every user of sockets calls `startup` before its first one and `cleanup` behind its last. This
  /// platform's sockets need neither.
  static void startup() noexcept {}
  static void cleanup() noexcept {}

 protected:
  using Use = qm_platform::SocketHandle::Use;
  using Side = qm_platform::SocketHandle::Side;

  /// The name that an object gets: the class's default for `kDefaultName`.
  static std::string nameOr(const std::string& sName, const char* szDefault);

  /// Throws the error of a socket call: a number and the name of the call.
  [[noreturn]] static void fail(qm_platform::SocketError error, const std::string& sFunction);

  /// Logs in the name of this object.
  [[gnu::format(printf, 3, 4)]] void logLine(int iLevel, const char* szFormat, ...) const;

  /// Takes over a new socket; the one before is closed.
  void setHandle(int iHandle) noexcept;

  /// Runs a call that doesn't wait on the socket. Throws its error under its label.
  template <typename Call>
  void control(const char* szFunction, Call call) const {
    const Use use(m_handle, Side::kRead);
    const qm_platform::SocketError error =
        use.number() < 0 ? qm_platform::kSocketNotSocket : call(use.number());
    if (error != 0) {
      fail(error, szFunction);
    }
  }

  /// Runs a call again and again until it doesn't report that it would have to wait; waits in between, all in
  /// all for `iTimeout` milliseconds. The call gets the socket's number and whether it may itself wait.
  /// Returns its error, 10004 when the socket was closed meanwhile. Throws JTimeoutError, and JSysError
  /// "select" when the wait fails.
  template <typename Call>
  qm_platform::SocketError blocking(const Use& use, bool bToWrite, std::int32_t iTimeout, Call call) const {
    if (use.number() < 0) {
      return qm_platform::kSocketNotSocket;
    }
    WaitLimit limit(iTimeout);
    for (;;) {
      const qm_platform::SocketError error = call(use.number(), iTimeout < 0);
      if (error == 0) {
        return 0;
      }
      if (use.isClosed()) {
        return qm_platform::kSocketInterrupted;
      }
      if (error != qm_platform::kSocketWouldBlock) {
        return error;
      }
      limit.wait(use.number(), bToWrite);
    }
  }

  /// Waits until the socket is ready for reading or writing, has failed or was closed. Throws as `blocking`.
  static void waitFor(const Use& use, bool bToWrite, std::int32_t iTimeout) {
    WaitLimit(iTimeout).wait(use.number(), bToWrite);
  }

  /// Receives once within the read time-out, by a call as `blocking` takes it that fills `received`. The
  /// error is 10004 as well when nothing came because the socket was closed.
  template <typename Call>
  qm_platform::SocketError receiving(const qm_platform::Received& received, Call call) const {
    const Use use(m_handle, Side::kRead);
    const qm_platform::SocketError error = blocking(use, false, m_iReadTimeout, call);
    // A socket that is closed under a waiting read looks to it as if the peer had closed.
    return error == 0 && received.uBytes == 0 && use.isClosed() ? qm_platform::kSocketInterrupted : error;
  }

  mutable qm_platform::SocketHandle m_handle;

 private:
  /// The time that is left for an operation.
  class WaitLimit {
   public:
    explicit WaitLimit(std::int32_t iMilliseconds) noexcept : m_iMilliseconds(iMilliseconds) {}

    /// Waits for the socket as long as the time lasts. Throws JTimeoutError and JSysError "select".
    void wait(int iSocket, bool bToWrite);

   private:
    std::int32_t m_iMilliseconds;
    std::int64_t m_iDue = 0;  ///< in nanoseconds; 0 before the first wait
  };

  template <typename Call>
  std::size_t sending(const char* szFunction, Call call);
  void shutdownSide(bool bWrite);

  bool m_bDatagram = false;
  std::int32_t m_iReadTimeout = -1;
  std::int32_t m_iWriteTimeout = -1;
  std::int32_t m_iConnectTimeout = -1;
  std::int32_t m_iAcceptTimeout = -1;
};
