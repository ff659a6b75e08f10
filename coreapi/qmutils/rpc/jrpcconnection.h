#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "coreapi/qmutils/rpc/jlineio.h"
#include "coreapi/qmutils/rpc/jrpcserver.h"
#include "coreapi/qmutils/thread/jthread.h"

/// One connection of a server: its thread serves the requests of one client, in order. Starts its thread in
/// its constructor, and deletes itself when the thread ends.
///
/// Its server keeps it in its list until the thread has done with the server; the operations for other
/// threads are called under the server's lock, while it is in that list.
class JRPCServer::Connection : public JLineIO, public JThread, public JTraceableObject {
 public:
  static constexpr const char* kClassName = "JRPCServer::Connection";

  /// Takes the channel over. The class name is what its records in the log tell; a literal.
  Connection(JRPCServer& server, std::unique_ptr<JIoSocket> pSocket, const std::string& sPeer,
             const char* szClassName = kClassName);

  /// The connection whose thread is calling, or null.
  static Connection* current();

  using JTraceableObject::getName;

  /// The body of the thread.
  void run() override;

  const std::string& getPeer() const noexcept { return m_sPeer; }

  // For other threads.

  /// Lets the thread see the end of its client's requests.
  void endRequests();

  /// Closes the channel if an answer has been on its way out for longer than the peer may take for the last
  /// one.
  void closeIfStuck(std::int64_t iNow);

 private:
  friend class JRPCServer;

  /// Whether the client is served further.
  enum class Next : bool { kEnd, kGoOn };

  enum class Outcome : std::uint8_t { kNoAnswer, kOk, kFailed };

  Next serveOne();
  bool readRequest(std::string_view& sLine);
  Next answerPing();
  Next answerRequest(std::string_view sLine);
  Outcome buildAnswer(std::string_view sLine);
  void sendBuiltLine();
  void serve();
  void letPeerFinish();
  [[gnu::format(printf, 3, 4)]] void logLine(int iLevel, const char* szFormat, ...) const;

  JRPCServer* m_pServer;  ///< the thread's own
  const ConnectionId m_uConnection;
  const std::string m_sPeer;
  const char* const m_szClassName;
  std::atomic<JRPCServer*> m_pMoveTarget{nullptr};  ///< set under the hand-over lock
  std::atomic<std::int64_t> m_iSendingSince{0};     ///< nanoseconds of the steady clock; 0: nothing goes out
  std::int64_t m_iLastAnswer = 0;                   ///< when the last one was out
};
