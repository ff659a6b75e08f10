#include "tests/support/scriptedmanager.h"

#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpcconnection.h"
#include "coreapi/qmutils/socket/jsockaddr.h"

namespace qm_test {

namespace {

/// What the link itself asks, whatever the host does.
bool isOfTheLink(std::string_view sLine) {
  for (const std::string_view sFunction : {"getRPCVersion(", "getVersionString(", "redirect("}) {
    if (sLine.starts_with(sFunction)) {
      return true;
    }
  }
  return false;
}

}  // namespace

ScriptedManager::ScriptedManager(const JRPCVersion& version)
    : JRPCTunnelService(JInetAddr("127.0.0.1", 0), "ScriptedManager") {
  setVersion(version);
  start();
}

ScriptedManager::~ScriptedManager() {
  {
    const std::lock_guard lock(m_mutex);
    m_bEnding = true;
    m_changed.notify_all();
  }
  hangUpAll();
  stop();
}

// The table.

void ScriptedManager::answer(const std::string& sFunction, Handler handler) {
  const std::lock_guard lock(m_mutex);
  m_handlers[sFunction] = std::move(handler);
}

void ScriptedManager::answer(const std::string& sFunction, const std::string& sList) {
  answer(sFunction, [sList](const JParams&) {
    auto pAnswer = std::make_unique<JParams>();
    pAnswer->parse(sList);
    return pAnswer;
  });
}

void ScriptedManager::refuse(const std::string& sFunction, const std::string& sError) {
  answer(sFunction, [sError](const JParams&) {
    auto pAnswer = std::make_unique<JParams>();
    pAnswer->add("Error", sError);
    return pAnswer;
  });
}

void ScriptedManager::fail(const std::string& sFunction, const std::string& sText) {
  answer(sFunction, [sText](const JParams&) -> std::unique_ptr<JParams> { QM_THROW(JTextError, sText); });
}

void ScriptedManager::ignore(const std::string& sFunction) {
  answer(sFunction, [](const JParams&) { return std::unique_ptr<JParams>(); });
}

void ScriptedManager::hangUp(const std::string& sFunction) {
  answer(sFunction, [](const JParams&) {
    Connection::current()->getSocket()->close();
    return std::unique_ptr<JParams>();
  });
}

void ScriptedManager::stall(const std::string& sFunction) {
  Handler handler = handlerOf(sFunction);
  const std::lock_guard lock(m_mutex);
  m_handlers[sFunction] = [this, handler, uReleases = m_uReleases](const JParams& parameters) {
    awaitRelease(uReleases);
    return handler ? handler(parameters) : std::unique_ptr<JParams>();
  };
}

void ScriptedManager::awaitRelease(std::size_t uReleases) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_bEnding || m_uReleases != uReleases; });
}

void ScriptedManager::release() {
  const std::lock_guard lock(m_mutex);
  ++m_uReleases;
  m_changed.notify_all();
}

ScriptedManager::Handler ScriptedManager::handlerOf(const std::string& sFunction) const {
  const std::lock_guard lock(m_mutex);
  const auto handler = m_handlers.find(sFunction);
  return handler != m_handlers.end() ? handler->second : Handler();
}

// What has come.

std::vector<std::string> ScriptedManager::requests() const {
  const std::lock_guard lock(m_mutex);
  return m_requests;
}

std::vector<std::string> ScriptedManager::takeRequests() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_requests, {});
}

void ScriptedManager::awaitRequests(std::size_t uCount) const {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_requests.size() >= uCount; });
}

std::unique_ptr<JParams> ScriptedManager::parseRequest(std::string_view sLine, ConnectionId uConnection) {
  if (!isOfTheLink(sLine)) {
    const std::lock_guard lock(m_mutex);
    m_requests.emplace_back(sLine);
    m_changed.notify_all();
  }
  return JRPCTunnelService::parseRequest(sLine, uConnection);
}

bool ScriptedManager::dispatch(const std::string& sFunction, JParams& parameters,
                               std::unique_ptr<JParams>& pAnswer, ConnectionId uConnection) {
  if (const Handler handler = handlerOf(sFunction)) {
    pAnswer = handler(parameters);
    return true;
  }
  const bool bKnown = JRPCTunnelService::dispatch(sFunction, parameters, pAnswer, uConnection);
  if (sFunction == "redirect") {
    onConnectionClosed(uConnection);  // it ends at another service
  }
  return bKnown;
}

void ScriptedManager::onConnectionOpened(ConnectionId uConnection) {
  const std::lock_guard lock(m_mutex);
  m_open.emplace(uConnection, Connection::current());
}

void ScriptedManager::onConnectionClosed(ConnectionId uConnection) {
  const std::lock_guard lock(m_mutex);
  m_open.erase(uConnection);
}

void ScriptedManager::hangUpAll() {
  const std::lock_guard lock(m_mutex);
  for (const auto& [uConnection, pConnection] : m_open) {
    pConnection->getSocket()->close();
  }
}

}  // namespace qm_test
