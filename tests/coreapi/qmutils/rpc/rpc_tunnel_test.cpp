#include <atomic>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "tests/coreapi/qmutils/rpc/scriptserver.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::RawClient;

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

std::string redirectTo(const JRPCService& service) {
  return "redirect(servicePort=" + std::to_string(service.getPort()) + ")";
}

TEST(RpcTunnelService, HandsAConnectionOverToAnyOtherService) {
  NamedService one("one");
  auto pTwo = std::make_unique<NamedService>("two", JRPCVersion{2, 2});
  const std::string sPort = std::to_string(pTwo->getPort());
  RawClient client(one.getPort());
  struct {
    std::string request;
    std::string answer;
  } const rows[] = {
      {"getRPCVersion(nop=0)", "OK RPCVersion=\"4.2\""},
      {"redirect()", "FAILED Invalid service port"},
      {"redirect(servicePort=0)", "FAILED Invalid service port"},
      {"redirect(servicePort=-1)", "FAILED Invalid service port"},
      {"redirect(servicePort=1)", "FAILED Service port does not exist"},
      {"who()", "OK who=\"one\""},
      {"getServicePorts()",
       "OK instanceName[1]=\"two:RPC[0.0.0.0:" + sPort + "]\", nServicePorts=1, servicePort[1]=" + sPort},
      {redirectTo(*pTwo), "OK "},
      {"getRPCVersion(nop=0)", "OK RPCVersion=\"2.2\""},
      {"who()", "OK who=\"two\""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(client.ask(row.request), row.answer) << row.request;
  }
  EXPECT_EQ(one.getConnectionCount(), 0U);
  EXPECT_EQ(pTwo->getConnectionCount(), 1U);
  EXPECT_EQ(client.ask(redirectTo(one)), "OK ");
  EXPECT_EQ(client.ask("who()"), "OK who=\"one\"");
  pTwo.reset();
  EXPECT_EQ(client.ask("getServicePorts()"), "OK nServicePorts=0");
}

TEST(RpcTunnelService, ServicesOfOnePortOnTwoAddressesAreKeptApart) {
  NamedService one(JInetAddr("127.0.0.1", 0), "one");
  NamedService other("other");
  {
    const NamedService two(JInetAddr("127.0.0.2", one.getPort()), "two");
    EXPECT_EQ(other.getServices().size(), 3U);
  }
  RawClient client(other.getPort());
  EXPECT_EQ(client.ask(redirectTo(one)), "OK ");
  EXPECT_EQ(client.ask("who()"), "OK who=\"one\"");
}

TEST(RpcTunnelService, ANameIsTakenOnce) {
  const qm_test::LogCapture log;
  NamedService service("one");
  service.registerFunction("who", nullptr);
  EXPECT_TRUE(log.has(qm_err::kLogError, "ASSERTION FAILED (ins.second)"));
  EXPECT_EQ(RawClient(service.getPort()).ask("who()"), "OK who=\"one\"");
}

/// Connections go to and fro between two services while one of them ends again and again.
TEST(RpcTunnelService, ServicesMayEndWhileConnectionsMove) {
  const qm_test::LogCapture log;
  NamedService stays("stays");
  for (int iTurn = 0; iTurn < 20; ++iTurn) {
    auto pGoes = std::make_unique<NamedService>("goes");
    const std::string sToGoes = redirectTo(*pGoes);
    const std::string sToStays = redirectTo(stays);
    std::atomic<int> iMoves{0};
    std::vector<std::thread> threads;
    for (int iThread = 0; iThread < 3; ++iThread) {
      threads.emplace_back([&] {
        RawClient client(stays.getPort());
        for (bool bGoOn = true; bGoOn; ++iMoves) {
          bGoOn = client.ask(sToGoes) == "OK " && client.ask("who()") == "OK who=\"goes\"" &&
                  client.ask(sToStays) == "OK ";
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
