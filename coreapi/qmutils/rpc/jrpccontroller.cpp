#include "coreapi/qmutils/rpc/jrpccontroller.h"

#include <utility>

#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/socket/jsocket.h"

namespace {

std::string address(const std::string& sHost, std::int32_t iPort) {
  return sHost + ":" + std::to_string(iPort);
}

}  // namespace

/// Says, for its lifetime, that the client is about to be deleted. Its thread is waited for then, so that
/// thread must not wait for anything of the controller's.
class JRPCController::Deleting {
 public:
  explicit Deleting(JRPCController& controller) : m_controller(controller) {
    const std::lock_guard lock(m_controller.m_smallMutex);
    ++m_controller.m_iDeleting;
    m_controller.m_clientChanged.notify_all();
  }
  ~Deleting() { end(); }
  Deleting(const Deleting&) = delete;
  Deleting& operator=(const Deleting&) = delete;

  /// The client is gone.
  void end() {
    const std::lock_guard lock(m_controller.m_smallMutex);
    m_controller.m_iDeleting -= std::exchange(m_iCount, 0);
  }

 private:
  JRPCController& m_controller;
  int m_iCount = 1;
};

JRPCController::JRPCController(JRPCNotifyWithContext* pNotify, std::int32_t iPort, const std::string& sHost,
                               std::int32_t iTunnelPort, std::int32_t iTimeOut, bool bBlocking)
    : JThreadedQueue<JRPCEventMsg>("JRPCController (JThreadedQueue<JRPCEventMsg>) " + address(sHost, iPort)),
      m_settings{iPort, iTunnelPort, sHost, bBlocking, iTimeOut},
      m_pNotify(pNotify) {
  JSocket::startup();
}

JRPCController::~JRPCController() {
  shutDown();
  JSocket::cleanup();
}

void JRPCController::shutDown() {
  m_bShutDown = true;
  disconnect();
  stop(false);
}

// The settings.

JRPCController::LinkSettings JRPCController::getSettings() const {
  const std::lock_guard lock(m_smallMutex);
  return m_settings;
}

std::int32_t JRPCController::getTimeOut() const {
  return getSettings().iTimeOut;
}

void JRPCController::setTimeOut(std::int32_t iTimeOut) {
  const std::lock_guard lock(m_smallMutex);
  m_settings.iTimeOut = iTimeOut;
}

std::string JRPCController::getHost() const {
  return getSettings().sHost;
}

void JRPCController::setHost(const std::string& sHost) {
  const std::lock_guard lock(m_smallMutex);
  m_settings.sHost = sHost;
}

std::int32_t JRPCController::getPort() const {
  return getSettings().iPort;
}

void JRPCController::setPort(std::int32_t iPort) {
  const std::lock_guard lock(m_smallMutex);
  m_settings.iPort = iPort;
}

std::int32_t JRPCController::getTunnelPort() const {
  return getSettings().iTunnelPort;
}

void JRPCController::setTunnelPort(std::int32_t iTunnelPort) {
  const std::lock_guard lock(m_smallMutex);
  m_settings.iTunnelPort = iTunnelPort;
}

bool JRPCController::getBlocking() const {
  return getSettings().bBlocking;
}

void JRPCController::setBlocking(bool bBlocking) {
  const std::lock_guard lock(m_smallMutex);
  m_settings.bBlocking = bBlocking;
}

void JRPCController::setHook(JRPCHook* pHook) {
  const std::lock_guard lock(m_smallMutex);
  m_pHook = pHook;
}

JRPCHook* JRPCController::getHook() const {
  const std::lock_guard lock(m_smallMutex);
  return m_pHook;
}

void JRPCController::setNotify(JRPCNotifyWithContext* pNotify) {
  const JAutoLock lock(m_deliveryMutex);
  m_pNotify = pNotify;
}

// What is asked of the server.

JRPCClient* JRPCController::getClient() const {
  const std::lock_guard lock(m_smallMutex);
  return m_pJrpcClient.get();
}

bool JRPCController::hasConnectedClient() const {
  const JRPCClient* const pClient = getClient();
  return pClient != nullptr && pClient->isConnected();
}

int JRPCController::setParams(const std::string& sParams) {
  const JAutoLock lock(m_linkMutex);
  if (!hasConnectedClient()) {
    return -1;
  }
  std::string sAnswer;
  getClient()->call("setParams", std::string_view(sParams), sAnswer, getTimeOut());
  return 0;
}

int JRPCController::getParams(std::string& sParams) {
  const JAutoLock lock(m_linkMutex);
  if (!hasConnectedClient()) {
    return -1;
  }
  const JVariant nop("nop", 0);
  getClient()->call("getParams", &nop, sParams, getTimeOut());
  return 0;
}

int JRPCController::getServerVersion(std::int32_t& iMajor, std::int32_t& iMinor) {
  const JAutoLock lock(m_linkMutex);
  const JRPCClient* const pClient = getClient();
  const JRPCVersion version = pClient != nullptr ? pClient->getServerVersion() : JRPCVersion{};
  iMajor = version.major;
  iMinor = version.minor;
  return pClient != nullptr ? 0 : -1;
}

int JRPCController::getStatus() {
  const JAutoLock lock(m_linkMutex);
  const JRPCClient* const pClient = getClient();
  if (pClient == nullptr) {
    return kDown;
  }
  int iUp = kUp;
  if (m_iStatus == kUp && !pClient->isConnected()) {
    m_iStatus.compare_exchange_strong(iUp, kDown);
  }
  return m_iStatus;
}

// The link's life.

void JRPCController::rehash() {
  connect();
}

/// Deletes the client, which waits for its thread: after the small lock is given back. The link's lock is
/// held.
void JRPCController::endLink() {
  std::unique_ptr<JRPCClient> pClient;
  const std::lock_guard lock(m_smallMutex);
  pClient.swap(m_pJrpcClient);
}

void JRPCController::disconnect() {
  const Deleting deleting(*this);
  const JAutoLock lock(m_linkMutex);
  endLink();
  m_iStatus = kDown;
}

int JRPCController::connect() {
  Deleting deleting(*this);
  const JAutoLock lock(m_linkMutex);
  endLink();
  deleting.end();
  if (m_bShutDown) {
    m_iStatus = kDown;
    return -1;
  }
  const LinkSettings settings = getSettings();
  m_iStatus = kConnecting;
  ++m_uLink;
  std::unique_ptr<JRPCClient> pClient;
  try {
    start(0, kMaxEvents);
    pClient = makeClient(settings);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    m_iStatus = kDown;
    return -1;
  }
  if (settings.bBlocking) {
    int iConnecting = kConnecting;
    m_iStatus.compare_exchange_strong(iConnecting, kUp);
    pClient->setRPCHook(getHook());
  }
  publish(std::move(pClient));
  return 0;
}

std::unique_ptr<JRPCClient> JRPCController::makeClient(const LinkSettings& settings) {
  JRPCClient::Settings client;
  client.sHost = settings.sHost;
  client.iPort = settings.iPort;
  client.iTunnelPort = settings.iTunnelPort;
  client.iConnectTimeout = settings.iTimeOut;
  client.bConnectNow = settings.bBlocking;
  client.iPingPeriod = kPingPeriod;
  client.bDeleteError = false;
  client.pTraceMask = &m_uTraceMask;
  client.sName = "JRPCController_" + address(settings.sHost, settings.iPort);
  return std::make_unique<JRPCClientNotify>(*this, client);
}

void JRPCController::publish(std::unique_ptr<JRPCClient> pClient) {
  const std::lock_guard lock(m_smallMutex);
  m_pJrpcClient = std::move(pClient);
  m_clientChanged.notify_all();
}

// The events.

/// The client's thread runs in here, so its client can't go: who deletes it waits for this thread. The link's
/// lock isn't taken for that very reason, and the client is asked for its call lock outside the small one, so
/// that a call that holds it doesn't hold up who ends the link.
void JRPCController::linkUp() {
  m_iStatus = kUp;
  JRPCClient* pClient = nullptr;
  JRPCHook* pHook = nullptr;
  {
    std::unique_lock lock(m_smallMutex);
    m_clientChanged.wait(lock, [this] { return m_iDeleting != 0 || m_pJrpcClient != nullptr; });
    if (m_iDeleting == 0) {
      pClient = m_pJrpcClient.get();
      pHook = m_pHook;
    }
  }
  if (pClient != nullptr) {
    pClient->setRPCHook(pHook);
  } else {
    qm_err::log(qm_err::kLogWarning,
                "JRPCController::linkUp: currently deleting m_pJrpcClient, no setRPCHook() call to avoid "
                "potential deadlock");
  }
  post({JRPCEventMsg::kLinkUp, this, nullptr, m_uLink});
}

void JRPCController::linkDown(JError* pError) {
  m_iStatus = kDown;
  std::unique_ptr<JError> pOwned(pError);
  if (!pOwned) {
    pOwned.reset(qm_err::located(new JTextError("Unknown error"), __FILE_NAME__, __LINE__));
  }
  post({JRPCEventMsg::kLinkDown, this, std::move(pOwned), m_uLink});
}

JRPCClient* JRPCController::getEventClient() const {
  if (JThread::getCurrentThread() != this || m_uEventLink != m_uLink) {
    return nullptr;
  }
  return getClient();
}

void JRPCController::process(JRPCEventMsg message) {
  const JAutoLock lock(m_deliveryMutex);
  if (m_pNotify == nullptr) {
    return;
  }
  m_uEventLink = message.uLink;
  if (message.type == JRPCEventMsg::kLinkUp) {
    m_pNotify->linkUp(message.pContext);
  } else if (message.type == JRPCEventMsg::kLinkDown) {
    m_pNotify->linkDown(message.pContext, message.pError.get());
  }
  m_uEventLink = 0;
}
