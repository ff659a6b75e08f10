// Both ends of the remote call protocol.
//
//   remote_call serve PORT                        answers "echo" with its parameters, until its input ends
//   remote_call HOST PORT FUNCTION [PARAMETERS]   calls a function, prints the server's version and the
//   answer

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"

namespace {

/// A service with one function of its own beside those that every service has. It runs on the connections'
/// threads, many at once.
class EchoService : public JRPCTunnelService {
 public:
  explicit EchoService(std::uint16_t uPort) : JRPCTunnelService(uPort, "Echo") {
    setVersion({4, 2});
    registerFunction("echo", std::make_unique<RpcFunc<EchoService>>(&EchoService::echo));
  }
  ~EchoService() override { stop(); }

 private:
  void echo(JParams& parameters, JParams& answer) { answer.merge(parameters); }
};

void serve(const char* szPort) {
  EchoService service(static_cast<std::uint16_t>(std::atoi(szPort)));
  service.start();
  std::cout << "listening on port " << service.getPort() << std::endl;
  while (std::cin.get() != std::char_traits<char>::eof()) {
  }
}

void call(const char* szHost, const char* szPort, const char* szFunction, const char* szParameters) {
  JRPCClient::Settings settings;
  settings.sHost = szHost;
  settings.iPort = std::atoi(szPort);
  settings.bConnectNow = true;
  JRPCClient client(settings);
  std::cout << "version " << client.getServerVersion().toText() << '\n';
  std::string sAnswer;
  client.call(szFunction, std::string_view(szParameters), sAnswer, settings.iConnectTimeout);
  std::cout << sAnswer << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  JLog::init(0);  // nothing on the standard error stream but what is said here
  try {
    if (argc == 3 && argv[1] == std::string("serve")) {
      serve(argv[2]);
    } else if (argc == 4 || argc == 5) {
      call(argv[1], argv[2], argv[3], argc == 5 ? argv[4] : "");
    } else {
      std::cerr << "usage: remote_call serve PORT | remote_call HOST PORT FUNCTION [PARAMETERS]\n";
      return 2;
    }
  } catch (JError* pError) {
    // Failures are thrown as pointers, and a guard owns what was caught.
    const qm_err::CaughtError error(pError);
    std::cerr << error->getMessage() << '\n';
    return 1;
  }
  return 0;
}
