#include "coreapi/qmutils/rpc/jrpctunnelservice.h"

#include <algorithm>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"

/// The services of this process by their ports; there is a map as long as there is a service. The hand-over
/// lock is held.
class JRPCTunnelService::Services {
 public:
  /// Services on different addresses may have the same port; a client is passed on to one of them.
  using Map = std::multimap<std::int32_t, JRPCTunnelService*>;

  static const Map& all() {
    static const Map none;
    return s_pMap != nullptr ? *s_pMap : none;
  }

  static void add(JRPCTunnelService& service) {
    if (s_pMap == nullptr) {
      s_pMap = new Map;
    }
    s_pMap->emplace(service.getPort(), &service);
  }

  /// Takes a service out, and every mark for it. It may be out already.
  static void remove(const JRPCTunnelService& service) {
    const auto [first, last] = all().equal_range(service.getPort());
    const auto entry = std::find_if(first, last, [&](const auto& row) { return row.second == &service; });
    if (entry == last) {
      return;
    }
    for (const auto& [iPort, pService] : *s_pMap) {
      pService->clearMarks(&service);
    }
    s_pMap->erase(entry);
    if (s_pMap->empty()) {
      delete std::exchange(s_pMap, nullptr);
    }
  }

 private:
  static Map* s_pMap;
};

JRPCTunnelService::Services::Map* JRPCTunnelService::Services::s_pMap = nullptr;

JRPCTunnelService::JRPCTunnelService(std::uint16_t uPort, const std::string& sName, std::uint32_t* pTraceMask)
    : JRPCService(uPort, sName, pTraceMask) {
  enter();
}

JRPCTunnelService::JRPCTunnelService(const JInetAddr& address, const std::string& sName,
                                     std::uint32_t* pTraceMask)
    : JRPCService(address, sName, pTraceMask) {
  enter();
}

JRPCTunnelService::~JRPCTunnelService() {
  stop();
}

void JRPCTunnelService::enter() {
  using Func = RpcFunc<JRPCTunnelService>;
  registerFunction("getRPCVersion", std::make_unique<Func>(&JRPCTunnelService::getRPCVersion));
  registerFunction("redirect", std::make_unique<Func>(&JRPCTunnelService::redirect));
  registerFunction("getServicePorts", std::make_unique<Func>(&JRPCTunnelService::getServicePorts));
  const JAutoLock lock(handOverMutex());
  Services::add(*this);
}

void JRPCTunnelService::leave() {
  const JAutoLock lock(handOverMutex());
  Services::remove(*this);
}

void JRPCTunnelService::stop() {
  JRPCService::stop();
  leave();
}

void JRPCTunnelService::registerFunction(const std::string& sName, std::unique_ptr<IRpc> pFunction) {
  const auto ins = m_functions.emplace(sName, std::move(pFunction));
  JASSERT(ins.second);
}

bool JRPCTunnelService::dispatch(const std::string& sFunction, JParams& parameters,
                                 std::unique_ptr<JParams>& pAnswer, ConnectionId uConnection) {
  const auto function = m_functions.find(sFunction);
  if (function == m_functions.end()) {
    return false;
  }
  function->second->call(*this, parameters, pAnswer, uConnection);
  return true;
}

std::vector<std::pair<std::int32_t, std::string>> JRPCTunnelService::getServices() const {
  std::vector<std::pair<std::int32_t, std::string>> services;
  const JAutoLock lock(handOverMutex());
  for (const auto& [iPort, pService] : Services::all()) {
    services.emplace_back(iPort, pService->getName());
  }
  return services;
}

// The functions.

void JRPCTunnelService::getRPCVersion(JParams& /*parameters*/, JParams& answer) {
  answer.add("RPCVersion", getVersion().toText());
}

void JRPCTunnelService::redirect(JParams& parameters, JParams& /*answer*/) {
  std::int32_t iPort = 0;
  if (!parameters.get("servicePort", iPort) || iPort < 1) {
    QM_THROW(JTextError, "Invalid service port");
  }
  const JAutoLock lock(handOverMutex());
  const auto service = Services::all().find(iPort);
  if (service == Services::all().end()) {
    QM_THROW(JTextError, "Service port does not exist");
  }
  markCurrentConnection(*service->second);
}

void JRPCTunnelService::getServicePorts(JParams& /*parameters*/, JParams& answer) {
  std::int32_t iCount = 0;
  for (const auto& [iPort, sName] : getServices()) {
    if (iPort != getPort()) {
      ++iCount;
      answer.add(qm_utils::format("servicePort[%d]", iCount), iPort);
      answer.add(qm_utils::format("instanceName[%d]", iCount), sName);
    }
  }
  answer.add("nServicePorts", iCount);
}
