#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/jtraceableobject.h"
#include "coreapi/qmutils/rpc/jlineio.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/rpc/owedanswers.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"

class JParams;
class JRPCClient;
class JTCPSocket;
class JVariant;

/// Sees every call and notification of a client before it goes over the wire, and may answer it itself.
class JRPCHook {
 public:
  virtual ~JRPCHook() = default;

  /// True when `sAnswer` is the answer line; the server then sees nothing of the request. `sRequest` is the
  /// request line without its end. Comes on the thread that calls, under the client's call lock; it may call
  /// through the client, and then sees those calls too. The answer to a notification is dropped.
  virtual bool intercept(JRPCClient& client, std::string_view sRequest, const JRPCVersion& version,
                         std::string& sAnswer) = 0;
};

/// The client's end of one connection to a server: performs calls, finds out the server's version, and
/// watches the link on a thread of its own.
///
/// A call writes one request line and reads one answer line. A call whose answer doesn't come in time leaves
/// the link open; the answer, when it comes, is dropped and never taken for that of a later call.
///
/// Threads: calls, `connect`, `setRPCHook` and the getters from any thread; calls exclude each other.
/// Creation, `shutdown` and destruction belong to the owner, not to the client's own thread, and when it is
/// destroyed no other thread may be inside. `onLinkUp` and `onLinkDown` come on the client's thread with no
/// lock held; they aren't called any more once `shutdown` has begun, and they may call everything but
/// `shutdown`.
///
/// Lock order: the call lock, held from the request to its answer, over a ping and over a whole connect; then
/// the state lock or the connect lock, which are held for moments only.
class JRPCClient : public JLineIO, public JThread, public JTraceableObject {
 public:
  /// Bits of the trace mask.
  enum Trace : std::uint32_t {
    kTraceLines = 4,  ///< what goes over the wire
    kTraceLink = 8,   ///< how the link stands
  };

  /// What a link is made from. Times are in milliseconds.
  struct Settings {
    std::string sHost = "localhost";
    std::int32_t iPort = 11001;
    std::int32_t iTunnelPort = 0;         ///< above 0: connect here first and ask to be passed on to the port
    std::int32_t iConnectTimeout = 2500;  ///< of the TCP connect and of each call made while connecting
    std::int32_t iWriteTimeout = -1;      ///< -1: none
    bool bRetry = false;                  ///< after a failure: keep trying; else the link is given up
    bool bConnectNow = false;             ///< connect in the constructor
    std::int32_t iReconnectPeriod = 0;    ///< the least time between two attempts
    std::int32_t iPingPeriod = 5000;      ///< 0 or less: no ping
    bool bStartThread = true;             ///< start the client's thread at the end of the constructor
    /// Whether the client deletes the errors that it has passed to `onLinkDown`; else they are the
    /// receiver's.
    bool bDeleteError = true;
    std::uint32_t* pTraceMask = nullptr;  ///< the caller's word, which outlives the client; null: no tracing
    std::string sName = "JRPCClient";
  };

  /// With `bConnectNow`, connects. Failing that, it goes on unconnected when `bRetry` is set, and throws the
  /// error of `connect` when not. A class that overrides `onLinkUp` or `onLinkDown` says `bStartThread` false
  /// and starts the thread when it is whole; its destructor calls `shutdown`.
  explicit JRPCClient(const Settings& settings);

  /// Takes over a connection. No thread, no retry, no time-outs.
  explicit JRPCClient(std::unique_ptr<JIoSocket> pSocket, bool bDeleteError = true,
                      std::uint32_t* pTraceMask = nullptr, const std::string& sName = "JRPCClient");
  ~JRPCClient() override;

  /// The link has come up, on the client's thread; not for a connect in the constructor. A `JError` that
  /// leaves it is logged.
  virtual void onLinkUp();

  /// The link has gone down, or the first attempt has failed. The error is the callee's only when the
  /// settings say so. A `JError` that leaves it is logged.
  virtual void onLinkDown(JError* pError);

  using JTraceableObject::getName;

  // The calls. Each sends `szName "(" parameters ")"`, the parameters being a chain (null for none), a text,
  // or several chains joined by ",", and waits `iTimeout` milliseconds for the answer, -1 for ever; a long
  // answer may take longer as long as it keeps coming (see JLineIO). The result is the answer's list, or,
  // with an out text, what stands behind "OK ".
  //
  // Throw JRPCConnectionLostError when the client isn't connected; JRPCCallFailedError when the server says
  // "FAILED"; JRPCProtocolError for any other answer; JVariant::SyntaxError for a list that doesn't parse;
  // JTextError, with nothing sent, for a text that doesn't fit on a line. A failure of the connection, a
  // time-out and a peer that closes throw JRPCConnectionLostError when `bRetry` is set, and the thread then
  // takes the link down. Else they throw the socket's error (JSysError, JTimeoutError; JRPCProtocolError for
  // a peer that has closed) and the link stays as it is until a ping fails.

  std::unique_ptr<JParams> call(const char* szName, const JVariant* pChain, std::int32_t iTimeout);
  void call(const char* szName, const JVariant* pChain, std::string& sAnswer, std::int32_t iTimeout);
  std::unique_ptr<JParams> call(const char* szName, std::string_view sParameters, std::int32_t iTimeout);
  void call(const char* szName, std::string_view sParameters, std::string& sAnswer, std::int32_t iTimeout);
  std::unique_ptr<JParams> call(const char* szName, const std::vector<const JVariant*>& chains,
                                std::int32_t iTimeout);
  void call(const char* szName, const std::vector<const JVariant*>& chains, std::string& sAnswer,
            std::int32_t iTimeout);

  /// Sends a request whose function has no answer. Throws as a call does while it sends. Should the server
  /// answer all the same, because the function fails, that line is dropped.
  void notify(const char* szName, const JVariant* pChain);

  bool isConnected() const;
  JRPCVersion getServerVersion() const;

  /// The peer's address without its port; before the first connection, this machine's own. Throws JSysError
  /// when the peer has gone or the name of this machine can't be resolved.
  std::string getRemoteName() const;

  /// Connects, on the calling thread, and finds out the server's version. A link that was there is replaced.
  /// Throws the error of the first attempt when there is no connection, and JRPCConnectionLostError when the
  /// client is shut down meanwhile.
  void connect();

  /// Ends the link and the thread, and waits for that. Whatever the thread or a call is waiting for is
  /// interrupted, but for the look-up of a host's name. A second call does nothing.
  void shutdown();

  /// Lets a hook see the calls from now on; null for none. It stays the caller's, and must stay until it is
  /// replaced. Waits for a call that is under way.
  void setRPCHook(JRPCHook* pHook);

  /// The body of the client's thread.
  void run() override;

 private:
  class Abortable;

  static constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

  // Calls; the call lock is held.
  void checkConnected(const char* szName) const;
  std::string_view perform(const char* szName, std::int32_t iTimeout);
  std::optional<std::string_view> askHook();
  template <typename Work>
  decltype(auto) onWire(Work work);
  void send(qm_utils::OwedAnswers::Request request);
  std::string_view receive(const char* szMessage, std::int32_t iTimeout);
  void synchronise(std::int32_t iTimeout);
  void endStream();

  // The connect sequence; the call lock is held.
  std::unique_ptr<JTCPSocket> openConnection(bool& bTunnelled);
  std::unique_ptr<JTCPSocket> openTo(std::int32_t iPort);
  void adoptConnection(std::unique_ptr<JTCPSocket> pSocket);
  void redirectToService();
  void discoverVersion();
  std::string askOldVersion();
  void setServerVersion(const JRPCVersion& version);
  void setConnected(bool bConnected);

  // The thread.
  bool tryToConnect(bool bFirstTurn);
  void takeLinkDown();
  void reportLinkDown(qm_err::CaughtError error);
  void ping();
  bool isPingDue() const;

  mutable JMutex m_callMutex;     ///< from request to answer; over the line I/O and the hook
  mutable JMutex m_stateMutex;    ///< over the connected flag and the server's version
  mutable JMutex m_connectMutex;  ///< over which sockets there are: the link's own and the abortable one
  JFlag m_lost{false};            ///< a call or a ping has found the link broken
  JFlag m_shutdown{false};        ///< wakes the thread

  const Settings m_settings;
  bool m_bConnected = false;
  JRPCVersion m_serverVersion;
  std::atomic<bool> m_bShuttingDown{false};
  bool m_bShutDown = false;
  JIoSocket* m_pPending = nullptr;  ///< beside the link's own: what connects or asks just now
  JRPCHook* m_pHook = nullptr;
  std::string m_sHookAnswer;
  qm_utils::OwedAnswers m_owed;
  std::int64_t m_iLastAttempt = 0;           ///< nanoseconds of the steady clock; the thread's own
  std::atomic<std::int64_t> m_iLastPing{0};  ///< or the time of the connect
};

/// Receives the link events of a client, on the client's thread.
class JRPCNotify {
 public:
  virtual ~JRPCNotify() = default;
  virtual void linkUp() = 0;
  virtual void linkDown(JError* pError) = 0;
};

/// A client that passes its link events on.
class JRPCClientNotify : public JRPCClient {
 public:
  /// As JRPCClient with a thread, whatever `bStartThread` says. The receiver outlives the client.
  JRPCClientNotify(JRPCNotify& receiver, const Settings& settings);
  ~JRPCClientNotify() override;

  void onLinkUp() override;
  void onLinkDown(JError* pError) override;

 private:
  JRPCNotify& m_receiver;
};
