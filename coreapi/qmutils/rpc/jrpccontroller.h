#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthreadedqueue.h"

class JRPCController;

/// Receives the link events of a controller, on its event thread, one at a time, without the link's lock. It
/// may call back into the controller, `connect` and `disconnect` included.
class JRPCNotifyWithContext {
 public:
  virtual ~JRPCNotifyWithContext() = default;

  /// The link of `pContext` has come up.
  virtual void linkUp(JRPCController* pContext) = 0;

  /// The link of `pContext` has gone down, or could not be made. The error stays the caller's.
  virtual void linkDown(JRPCController* pContext, JError* pError) = 0;
};

/// What hosts do with a link. Results of 0 mean done, -1 not.
class JRPCControllerInterface {
 public:
  JRPCControllerInterface() = default;
  JRPCControllerInterface(const JRPCControllerInterface&) = delete;
  JRPCControllerInterface& operator=(const JRPCControllerInterface&) = delete;

  /// Sends parameters to the server. -1, and nothing done, without a connected link. Throws what a call of
  /// JRPCClient throws.
  virtual int setParams(const std::string& sParams) = 0;

  /// Asks the server for its parameters. As `setParams`; the out text is untouched unless the result is 0.
  virtual int getParams(std::string& sParams) = 0;

  /// The server's version; 0, 0 and -1 without a link.
  virtual int getServerVersion(std::int32_t& iMajor, std::int32_t& iMinor) = 0;

  // The settings of a link. They take effect at the next `connect`, the time-out at once for `setParams` and
  // `getParams`. Milliseconds.

  virtual std::int32_t getTimeOut() const = 0;
  virtual void setTimeOut(std::int32_t iTimeOut) = 0;
  virtual std::string getHost() const = 0;
  virtual void setHost(const std::string& sHost) = 0;
  virtual std::int32_t getPort() const = 0;
  virtual void setPort(std::int32_t iPort) = 0;
  virtual std::int32_t getTunnelPort() const = 0;
  virtual void setTunnelPort(std::int32_t iTunnelPort) = 0;

  /// 0 no link, 1 connecting, 2 connected.
  virtual int getStatus() = 0;

  /// Whether `connect` connects on the calling thread.
  virtual bool getBlocking() const = 0;
  virtual void setBlocking(bool bBlocking) = 0;

  /// `connect`.
  virtual void rehash() = 0;

  /// Ends the link. No event comes from it afterwards; those that are queued already are still delivered.
  virtual void disconnect() = 0;

  /// Makes a link in the place of the one there is. Blocking: 0 when it stands, and no event; -1 when there
  /// is none, with the error logged. Otherwise always 0, and the outcome comes as an event.
  virtual int connect() = 0;

  virtual ~JRPCControllerInterface() = default;
};

/// A link event on its way to the host.
struct JRPCEventMsg {
  /// Never renumber.
  enum Type : std::int32_t { kNone = -1, kLinkUp = 1, kLinkDown = 2 };

  Type type = kNone;
  JRPCController* pContext = nullptr;
  std::unique_ptr<JError> pError;
  std::uint64_t uLink = 0;  ///< number of the link that the event belongs to, from 1
};

/// Owns the life of one link: its settings, its client, its status, and a queue with a thread of its own that
/// brings link events to the host, so that the client's thread never waits for the host.
///
/// A lost link ends; nothing reconnects by itself. The host calls `connect`, which makes a new client.
///
/// An event may reach the host when its link is gone already, or another one has taken its place. Every event
/// belongs to the link that it came from: `getEventClient` gives the target that link's client, or null when
/// the link isn't the controller's any more.
///
/// Threads: all operations from any thread, but not from the client's own; `shutDown` and destruction not
/// from the event thread. Lock order: a lock of the host's, then the link's (`getLock`), then the small one
/// over settings and pointers, then the client's. The link's lock is held over a call of `setParams` and
/// `getParams` and over a blocking connect, never while an event is delivered. The client's thread takes only
/// the small one, for moments, so it never waits for who ends it.
class JRPCController : public virtual JRPCControllerInterface,
                       public JRPCNotify,
                       public JThreadedQueue<JRPCEventMsg> {
 public:
  enum Status : int { kDown = 0, kConnecting = 1, kUp = 2 };

  static constexpr std::int32_t kDefaultPort = 11001;
  static constexpr std::int32_t kDefaultTimeOut = 2500;
  static constexpr std::int32_t kMaxEvents = 1000;
  static constexpr std::int32_t kPingPeriod = 5000;

  /// The target may be null; it stays the caller's. The event thread starts with the first `connect`, when
  /// the classes that derive from this one are whole; before that there is nothing to tell.
  explicit JRPCController(JRPCNotifyWithContext* pNotify, std::int32_t iPort = kDefaultPort,
                          const std::string& sHost = "localhost", std::int32_t iTunnelPort = 0,
                          std::int32_t iTimeOut = kDefaultTimeOut, bool bBlocking = false);

  /// A derived class that is its own target calls `shutDown` in its destructor, or earlier.
  ~JRPCController() override;

  int setParams(const std::string& sParams) override;
  int getParams(std::string& sParams) override;
  int getServerVersion(std::int32_t& iMajor, std::int32_t& iMinor) override;
  std::int32_t getTimeOut() const override;
  void setTimeOut(std::int32_t iTimeOut) override;
  std::string getHost() const override;
  void setHost(const std::string& sHost) override;
  std::int32_t getPort() const override;
  void setPort(std::int32_t iPort) override;
  std::int32_t getTunnelPort() const override;
  void setTunnelPort(std::int32_t iTunnelPort) override;
  int getStatus() override;
  bool getBlocking() const override;
  void setBlocking(bool bBlocking) override;
  void rehash() override;
  void disconnect() override;
  int connect() override;

  /// A hook that clients get when their link is up; null for none. Takes effect at the next link.
  void setHook(JRPCHook* pHook);

  /// Changes the target; null for none. The old one isn't called any more when this returns, so this waits
  /// for a delivery under way, unless it is called from inside of one: hold no lock that the target may want.
  void setNotify(JRPCNotifyWithContext* pNotify);

  /// The link's lock. Who works with the client holds it, so that the client stays.
  JMutex& getLock() noexcept { return m_linkMutex; }

  /// The live client, or null. Hold the lock.
  JRPCClient* getClient() const;

  /// Inside `linkUp` and `linkDown` of the target: the client that the event came from, or null when that
  /// link has been ended or replaced. Null elsewhere. Hold the lock.
  JRPCClient* getEventClient() const;

  /// Ends the link and the event thread; what is queued is dropped, a delivery under way is finished. Nothing
  /// reaches the target afterwards, and `connect` gives -1.
  void shutDown();

 protected:
  // The client's events, on its thread.
  void linkUp() override;
  void linkDown(JError* pError) override;

  void process(JRPCEventMsg message) override;

 private:
  class Deleting;

  struct LinkSettings {
    std::int32_t iPort;
    std::int32_t iTunnelPort;
    std::string sHost;
    bool bBlocking;
    std::int32_t iTimeOut;
  };

  LinkSettings getSettings() const;
  JRPCHook* getHook() const;
  void endLink();
  std::unique_ptr<JRPCClient> makeClient(const LinkSettings& settings);
  void publish(std::unique_ptr<JRPCClient> pClient);
  bool hasConnectedClient() const;

  JMutex m_linkMutex;                       ///< over the life of the client, and the order of connects
  mutable std::mutex m_smallMutex;          ///< over all below that isn't atomic
  std::condition_variable m_clientChanged;  ///< a client has been published, or one is to be deleted
  LinkSettings m_settings;
  JRPCHook* m_pHook = nullptr;
  std::unique_ptr<JRPCClient> m_pJrpcClient;  ///< changed under both locks
  int m_iDeleting = 0;                        ///< calls that delete the client, or wait for the lock to do so
  std::atomic<bool> m_bShutDown{false};
  std::atomic<int> m_iStatus{kDown};
  std::atomic<std::uint64_t> m_uLink{0};  ///< number of the newest link; stands while its client lives
  std::uint64_t m_uEventLink = 0;         ///< of the event being delivered; the event thread's own
  JMutex m_deliveryMutex;                 ///< over the target, held while it is called; before the link's
  JRPCNotifyWithContext* m_pNotify;
  std::uint32_t m_uTraceMask = 0x7FFFFFFF;
};
