#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "coreapi/qmutils/rpc/jlineio.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace qm_test {

/// The peer's end of one connection, for a script.
class ScriptPeer : public JLineIO {
 public:
  ScriptPeer(JIoSocket* pSocket, bool bOwns) : JLineIO(kAnswerLimit) { setSocket(pSocket, bOwns); }

  /// The next line; empty at the end of the connection.
  std::string line();

  /// Reads a line, and reports a failure of the test unless it is this one.
  void expect(std::string_view sLine);

  /// Sends bytes as they are.
  void send(std::string_view sBytes);

  /// Answers the version call that every client makes first.
  void answerVersion(std::string_view sVersion = "4.2");

  /// Answers every line with what a function gives, until the client has closed.
  void serve(const std::function<std::string(const std::string&)>& answer);

  /// Lets the end of the script reset the connection.
  void resetOnClose();

  /// Waits until the client has closed, whatever it sends.
  void awaitEnd();
};

/// A line-wise client without any knowledge of the protocol.
class RawClient : public ScriptPeer {
 public:
  explicit RawClient(std::uint16_t uPort);

  /// The next line; "(end)" when the server has closed or the connection is gone.
  std::string line();

  /// Sends a line and returns the next one.
  std::string ask(std::string_view sLine);

  JTCPSocket& socket() { return *m_pSocket; }

 private:
  JTCPSocket* m_pSocket;  ///< the line channel's own
};

/// A server of a few lines, on a free port of the loopback. Each connection runs the next script of the list,
/// the last one again and again, on a thread of its own; what is left open when the server goes is closed.
class ScriptServer {
 public:
  using Script = std::function<void(ScriptPeer&)>;

  explicit ScriptServer(std::vector<Script> scripts, std::uint16_t uPort = 0);
  ~ScriptServer();
  ScriptServer(const ScriptServer&) = delete;
  ScriptServer& operator=(const ScriptServer&) = delete;

  std::uint16_t port() const { return m_uPort; }
  std::size_t accepted() const { return m_accepted; }

  /// Waits until the scripts of all connections that it has taken have ended.
  void awaitIdle();

 private:
  struct Connection;

  void run();
  void sweep();

  std::vector<Script> m_scripts;
  JTCPSocket m_listener;
  std::uint16_t m_uPort;
  std::atomic<std::size_t> m_accepted{0};
  std::atomic<bool> m_bStop{false};
  std::mutex m_mutex;
  std::vector<std::unique_ptr<Connection>> m_connections;
  std::thread m_thread;
};

/// A port of the loopback on which nothing listens.
std::uint16_t closedPort();

}  // namespace qm_test
