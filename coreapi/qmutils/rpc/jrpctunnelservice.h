#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcservice.h"

/// A service with the functions that every one has, through any of whose ports a client reaches all others of
/// this process:
///
///     function         parameters              answer
///     getRPCVersion                            RPCVersion string, "MAJOR.MINOR"
///     redirect         servicePort integer     empty; the connection then belongs to that service
///     getServicePorts                          servicePort[N] integer and instanceName[N] string for N from
///     1,
///                                              nServicePorts integer; the service itself isn't listed
///
/// A service adds functions of its own with `registerFunction`, or overrides `dispatch` and calls this one's
/// for what it doesn't know. Threads and lock order as in JRPCServer; functions are registered before
/// `start`.
class JRPCTunnelService : public JRPCService {
 public:
  /// One function. Runs on the connections' threads, many at once.
  class IRpc {
   public:
    virtual ~IRpc() = default;
    virtual void call(JRPCTunnelService& server, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                      ConnectionId uConnection) = 0;
  };

  /// A function that is a member of the service and fills an answer.
  template <typename Service>
  class RpcFunc : public IRpc {
   public:
    using Function = void (Service::*)(JParams& parameters, JParams& answer);

    explicit RpcFunc(Function pFunction) noexcept : m_pFunction(pFunction) {}

    void call(JRPCTunnelService& server, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
              ConnectionId /*uConnection*/) override {
      auto pNew = std::make_unique<JParams>();
      (static_cast<Service&>(server).*m_pFunction)(parameters, *pNew);
      pAnswer = std::move(pNew);
    }

   private:
    const Function m_pFunction;
  };

  /// As JRPCService. The service can be reached from others from now on.
  JRPCTunnelService(std::uint16_t uPort, const std::string& sName, std::uint32_t* pTraceMask = nullptr);
  JRPCTunnelService(const JInetAddr& address, const std::string& sName, std::uint32_t* pTraceMask = nullptr);
  ~JRPCTunnelService() override;

  bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                ConnectionId uConnection) override;

  /// Port and instance name of every service of this process, this one included, in the order of the ports.
  virtual std::vector<std::pair<std::int32_t, std::string>> getServices() const;

  /// Adds a function. A name that is taken fails an assertion, and keeps the function that it has.
  void registerFunction(const std::string& sName, std::unique_ptr<IRpc> pFunction);

  /// As JRPCService; others no longer reach this service then.
  void stop();

  // The functions.

  void getRPCVersion(JParams& parameters, JParams& answer);

  /// Throws JTextError "Invalid service port" or "Service port does not exist".
  void redirect(JParams& parameters, JParams& answer);
  void getServicePorts(JParams& parameters, JParams& answer);

 private:
  class Services;

  void enter();
  void leave();

  std::map<std::string, std::unique_ptr<IRpc>, std::less<>> m_functions;
};
