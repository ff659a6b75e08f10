#include "tests/coreapi/qmutils/rpc/scriptserver.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "tests/support/thrownby.h"

namespace {

/// Thousands of connections would drown the tests' own output in the log.
class QuietLog : public testing::Environment {
 public:
  void SetUp() override { JLog::init(0); }
};

const testing::Environment* const kQuietLog = testing::AddGlobalTestEnvironment(new QuietLog);

}  // namespace

namespace qm_test {

std::string ScriptPeer::line() {
  const auto sLine = readLine();
  return sLine ? std::string(*sLine) : std::string();
}

void ScriptPeer::expect(std::string_view sLine) {
  EXPECT_EQ(line(), sLine);
}

void ScriptPeer::send(std::string_view sBytes) {
  getSocket()->write(sBytes.data(), sBytes.size());
}

void ScriptPeer::answerVersion(std::string_view sVersion) {
  expect("getRPCVersion(nop=0)");
  send("OK RPCVersion=\"" + std::string(sVersion) + "\"\r\n");
}

void ScriptPeer::serve(const std::function<std::string(const std::string&)>& answer) {
  for (std::string sLine = line(); !sLine.empty(); sLine = line()) {
    send(answer(sLine) + "\r\n");
  }
}

void ScriptPeer::resetOnClose() {
  const linger immediate{1, 0};
  dynamic_cast<JSocket&>(*getSocket()).setOption(SOL_SOCKET, SO_LINGER, &immediate, sizeof immediate);
}

void ScriptPeer::awaitEnd() {
  while (!line().empty()) {
  }
}

RawClient::RawClient(std::uint16_t uPort)
    : ScriptPeer(new JTCPSocket(JInetAddr("127.0.0.1", uPort)), true),
      m_pSocket(dynamic_cast<JTCPSocket*>(getSocket())) {}

std::string RawClient::line() {
  std::string sLine = "(end)";
  thrownBy([&] { sLine = readLine().value_or(sLine); });
  return sLine;
}

std::string RawClient::ask(std::string_view sLine) {
  send(std::string(sLine) + "\r\n");
  return line();
}

struct ScriptServer::Connection {
  std::unique_ptr<JSocket> pSocket;
  std::thread thread;
  std::atomic<bool> bDone{false};
};

ScriptServer::ScriptServer(std::vector<Script> scripts, std::uint16_t uPort)
    : m_scripts(std::move(scripts)), m_listener(uPort), m_uPort(m_listener.getLocalPort()) {
  m_thread = std::thread([this] { run(); });
}

ScriptServer::~ScriptServer() {
  m_bStop = true;
  m_listener.close();
  m_thread.join();
  for (const auto& pConnection : m_connections) {
    pConnection->pSocket->close();
    pConnection->thread.join();
  }
}

void ScriptServer::awaitIdle() {
  // Connections are taken in order, and no script outlives its client; one may reset this one at any time.
  thrownBy([this] {
    RawClient last(m_uPort);
    last.socket().shutdownWrite();
    while (last.line() != "(end)") {
    }
  });
  const std::lock_guard lock(m_mutex);
  for (const auto& pConnection : m_connections) {
    pConnection->thread.join();
  }
  m_connections.clear();
}

/// Takes the connections out that have ended. The mutex is held.
void ScriptServer::sweep() {
  std::erase_if(m_connections, [](const auto& pConnection) {
    if (pConnection->bDone) {
      pConnection->thread.join();
      return true;
    }
    return false;
  });
}

void ScriptServer::run() {
  while (!m_bStop) {
    try {
      auto pSocket = m_listener.accept();
      if (!pSocket) {
        return;
      }
      const Script& script = m_scripts[std::min(m_accepted++, m_scripts.size() - 1)];
      const std::lock_guard lock(m_mutex);
      sweep();
      auto pConnection = std::make_unique<Connection>();
      pConnection->pSocket = std::move(pSocket);
      pConnection->thread =
          std::thread([&script, &socket = *pConnection->pSocket, &done = pConnection->bDone] {
            try {
              ScriptPeer peer(&socket, false);
              script(peer);
            } catch (JError* pError) {
              const qm_err::CaughtError error(pError);  // the client has gone
            }
            socket.close();
            done = true;
          });
      m_connections.push_back(std::move(pConnection));
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);  // the client was gone before it was taken
    }
  }
}

std::uint16_t closedPort() {
  JTCPSocket socket;
  socket.bind(0);
  return socket.getLocalPort();
}

}  // namespace qm_test
