#include <atomic>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "tests/support/logcapture.h"
#include "tests/support/thrownby.h"

namespace {

using qm_test::thrownBy;

constexpr std::int32_t kForever = -1;

class NamedService : public JRPCTunnelService {
 public:
  explicit NamedService(const std::string& sName, JRPCVersion version = {4, 2})
      : NamedService(JInetAddr(0, 0), sName, version) {}
  NamedService(const JInetAddr& address, const std::string& sName, JRPCVersion version = {4, 2})
      : JRPCTunnelService(address, sName), m_sWho(sName) {
    setVersion(version);
    registerFunction("who", std::make_unique<RpcFunc<NamedService>>(&NamedService::who));
    start();
  }
  ~NamedService() override { stop(); }

 private:
  void who(JParams& /*parameters*/, JParams& answer) { answer.add("who", m_sWho); }

  const std::string m_sWho;
};

JRPCClient::Settings settingsFor(std::int32_t iPort, std::int32_t iTunnelPort = 0) {
  JRPCClient::Settings settings;
  settings.sHost = "127.0.0.1";
  settings.iPort = iPort;
  settings.iTunnelPort = iTunnelPort;
  settings.bConnectNow = true;
  settings.bStartThread = false;
  return settings;
}

std::string ask(JRPCClient& client, const char* szName, std::string_view sParameters = {}) {
  std::string sAnswer;
  const std::string sError = thrownBy([&] { client.call(szName, sParameters, sAnswer, kForever); });
  return sError.empty() ? sAnswer : sError;
}

TEST(RpcTunnelService, HandsAConnectionOverOnItsNextLine) {
  NamedService one("one");
  NamedService two("two", {2, 2});
  JRPCClient client(settingsFor(two.getPort(), one.getPort()));
  EXPECT_EQ(client.getServerVersion(), (JRPCVersion{2, 2}));
  EXPECT_EQ(ask(client, "who"), "who=\"two\"");
  EXPECT_EQ(one.getConnectionCount(), 0U);
  EXPECT_EQ(two.getConnectionCount(), 1U);
  EXPECT_EQ(ask(client, "redirect", "servicePort=" + std::to_string(one.getPort())), "");
  EXPECT_EQ(ask(client, "who"), "who=\"one\"");
}

struct RedirectCase {
  const char* parameters;
  const char* answer;
};

TEST(RpcTunnelService, RefusesToRedirectToNowhere) {
  NamedService service("one");
  JRPCClient client(settingsFor(service.getPort()));
  for (const RedirectCase& row : {RedirectCase{"", "FAILED Invalid service port"},
                                  RedirectCase{"servicePort=0", "FAILED Invalid service port"},
                                  RedirectCase{"servicePort=-1", "FAILED Invalid service port"},
                                  RedirectCase{"servicePort=1", "FAILED Service port does not exist"}}) {
    EXPECT_EQ(ask(client, "redirect", row.parameters), row.answer);
  }
  EXPECT_EQ(ask(client, "who"), "who=\"one\"");
}

TEST(RpcTunnelService, ListsTheOtherServices) {
  NamedService one("one");
  JRPCClient client(settingsFor(one.getPort()));
  EXPECT_EQ(ask(client, "getServicePorts"), "nServicePorts=0");
  {
    NamedService two("two");
    const std::string sPort = std::to_string(two.getPort());
    EXPECT_EQ(ask(client, "getServicePorts"),
              "instanceName[1]=\"two:RPC[0.0.0.0:" + sPort + "]\", nServicePorts=1, servicePort[1]=" + sPort);
  }
  EXPECT_EQ(ask(client, "getServicePorts"), "nServicePorts=0");
}

TEST(RpcTunnelService, ServicesOfOnePortOnTwoAddressesAreKeptApart) {
  NamedService one(JInetAddr("127.0.0.1", 0), "one");
  const std::string sPort = "servicePort=" + std::to_string(one.getPort());
  NamedService other("other");
  JRPCClient client(settingsFor(other.getPort()));
  {
    const NamedService two(JInetAddr("127.0.0.2", one.getPort()), "two");
    EXPECT_EQ(other.getServices().size(), 3U);
  }
  EXPECT_EQ(ask(client, "redirect", sPort), "");
  EXPECT_EQ(ask(client, "who"), "who=\"one\"");
}

TEST(RpcTunnelService, ANameIsTakenOnce) {
  const qm_test::LogCapture log;
  NamedService service("one");
  service.registerFunction("who", nullptr);
  EXPECT_TRUE(log.has(qm_err::kLogError, "ASSERTION FAILED (ins.second)"));
  JRPCClient client(settingsFor(service.getPort()));
  EXPECT_EQ(ask(client, "who"), "who=\"one\"");
}

/// Connections go to and fro between two services while one of them ends again and again.
TEST(RpcTunnelService, ServicesMayEndWhileConnectionsMove) {
  const qm_test::LogCapture log;
  NamedService stays("stays");
  for (int iTurn = 0; iTurn < 20; ++iTurn) {
    auto pGoes = std::make_unique<NamedService>("goes");
    const std::string sToGoes = "servicePort=" + std::to_string(pGoes->getPort());
    const std::string sToStays = "servicePort=" + std::to_string(stays.getPort());
    std::atomic<int> iMoves{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < 3; ++iThread) {
      threads.emplace_back([&] {
        JRPCClient client(settingsFor(stays.getPort()));
        for (bool bGoOn = true; bGoOn; ++iMoves) {
          bGoOn = ask(client, "redirect", sToGoes).empty() && ask(client, "who") == "who=\"goes\"" &&
                  ask(client, "redirect", sToStays).empty();
        }
        iMoves += 1000;
      });
    }
    while (iMoves < 20) {
      std::this_thread::yield();
    }
    pGoes.reset();
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  stays.stop();
  EXPECT_EQ(stays.getConnectionCount(), 0U);
}

}  // namespace
