#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/log/jtraceableobject.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/thread/jmutex.h"

class JIoSocket;
class JParams;
class JSockAddr;

/// The server's side of the line protocol: one thread for each connection, which reads request lines and
/// writes their answers. A service derives from it and overrides `dispatch`.
///
/// `dispatch` and its kin run on many threads at once, one for each connection, with no lock held; a service
/// guards its own data. A derived class calls `shutdown` in its destructor, because what they belong to is
/// gone after that.
///
/// Threads: all operations from any thread, but `shutdown` never from a connection's own. Lock order: the
/// hand-over lock, then a server's own.
class JRPCServer : public JTraceableObject {
 public:
  class Connection;

  /// Names a connection for its whole life; never used again in this process.
  using ConnectionId = std::uint64_t;

  /// How long the end of a connection waits for its peer to have taken the last answer, in milliseconds.
  static constexpr std::int32_t kLastAnswerTime = 1000;

  /// Connections at the same time. Each holds a thread and a descriptor, of which a process commonly has
  /// 1024: what clients leave idle mustn't keep the service from its own files.
  static constexpr std::size_t kMostConnections = 512;

  /// A null mask means that requests aren't traced.
  explicit JRPCServer(const std::string& sName, std::uint32_t* pTraceMask = nullptr);
  ~JRPCServer() override;

  /// Takes a request line apart and dispatches it. The answer's list, or null when the function has no
  /// answer. What it throws as `JError` goes to the client as "FAILED": JRPCProtocolError for a malformed
  /// line (see rpc_line::splitRequest), JVariant::SyntaxError for parameters that don't parse, and whatever
  /// the function throws.
  virtual std::unique_ptr<JParams> parseRequest(std::string_view sLine, ConnectionId uConnection);

  /// Runs a function. False when there is none of that name, as here. `pAnswer` left null means that the
  /// function has no answer.
  virtual bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                        ConnectionId uConnection);

  /// Throws JRPCProtocolError "unknown function" with the name as detail and code -4.
  virtual void unknownFunction(const std::string& sFunction);

  /// A connection's thread has begun, or is about to end, on that thread.
  virtual void onConnectionOpened(ConnectionId uConnection);
  virtual void onConnectionClosed(ConnectionId uConnection);

  /// Takes a connection over and serves it until it ends. One that can't be served, for want of a thread or
  /// because the peer has gone, the server is shut or there are as many as may be, is dropped and logged.
  void addConnection(std::unique_ptr<JIoSocket> pSocket);

  std::size_t getConnectionCount() const;

  /// `kMostConnections` at the start. Those that stand stay.
  void setMostConnections(std::size_t uMost);

  /// The address of the client whose request the calling thread serves. Throws JTextError on any other
  /// thread, and JSysError "getpeername" when the client has gone.
  static std::unique_ptr<JSockAddr> getCurrentPeer();

  /// The version that the service tells its clients. Set before the first connection.
  const JRPCVersion& getVersion() const noexcept { return m_version; }
  void setVersion(const JRPCVersion& version) noexcept { m_version = version; }

  bool isShut() const noexcept { return m_bShut; }

  /// Ends all connections and waits for them. A request that is being served is finished and its answer sent,
  /// as long as the peer takes it within `kLastAnswerTime`. A second call does nothing.
  void shutdown();

 protected:
  /// Over every hand-over of a connection from one server to another, and over the marks for it. Before a
  /// server's own lock.
  static JMutex& handOverMutex();

  /// Marks the connection whose thread is calling: it goes over to another server when its answer is sent.
  /// The hand-over lock is held. Elsewhere than on a connection's thread nothing happens.
  static void markCurrentConnection(JRPCServer& target);

  /// Clears every mark of this server's connections that says so. The hand-over lock is held.
  void clearMarks(const JRPCServer* pTarget);

 private:
  void remove(Connection& connection);
  bool handOver(Connection& connection);
  void closeIdle();
  bool waitForConnections();

  mutable JMutex m_mutex;                  ///< over the list and its limit
  std::vector<Connection*> m_connections;  ///< each deletes itself when it has left the list
  std::size_t m_uMostConnections = kMostConnections;
  std::atomic<bool> m_bShut{false};
  JRPCVersion m_version;
};
