// Remote calls over the loopback, every server in a process of its own. Our call writes its typed parameters,
// the server reads them and writes a typed answer, and the client reads that; the peer moves texts of the
// same length. Four processes share the processors, so a busy machine shows mostly itself.
//
//   call, hiredis              GET of the answer's bytes under a key of the request's, by its C client
//   call, bare                 send and receive of the same bytes, on both sides
//   N connections              one request under way on each, against redis-benchmark with as many
//   read 200,000 rows          a deserialised search answer, against parsing the same list's text
//
// The store is started on a free port without persistence, and ended with this.

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <hiredis/hiredis.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/params/jvariant.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace {

constexpr int kCalls = 20'000;
constexpr int kAnswers = 100'000;

[[noreturn]] void giveUp(const char* szWhy) {
  std::perror(szWhy);
  std::exit(1);
}

/// Runs a function in a process of its own, which ends with this one at the latest.
class Child {
 public:
  explicit Child(const std::function<void()>& work) : m_iPid(fork()) {
    if (m_iPid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      work();
      _exit(0);
    }
    if (m_iPid < 0) {
      giveUp("fork");
    }
  }
  ~Child() {
    kill(m_iPid, SIGKILL);
    waitpid(m_iPid, nullptr, 0);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

 private:
  pid_t m_iPid;
};

/// Answers one call with four values.
class Service : public JRPCTunnelService {
 public:
  Service() : JRPCTunnelService(0, "bench") {
    registerFunction("rpc_getSpan", std::make_unique<RpcFunc<Service>>(&Service::getSpan));
  }
  ~Service() override { stop(); }

 private:
  void getSpan(JParams& parameters, JParams& answer) {
    std::int32_t iFps = 0;
    std::string sSource;
    parameters.get("Fps", iFps, true);
    parameters.get("SourceName", sSource, true);
    answer.add("SourceName", sSource);
    answer.add("Fps", iFps);
    answer.add("Start", std::int64_t{12943612800000000});
    answer.add("End", std::int64_t{12943612860000000});
  }
};

constexpr const char* kRequest = "rpc_getSpan(Fps=25, SourceName=\"entrance camera 1\")\r\n";
constexpr const char* kAnswer =
    "OK End=12943612860000000, Fps=25, SourceName=\"entrance camera 1\", Start=12943612800000000\r\n";

int listener(std::uint16_t& uPort) {
  const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t uSize = sizeof address;
  if (iSocket < 0 || bind(iSocket, reinterpret_cast<sockaddr*>(&address), uSize) != 0 ||
      listen(iSocket, 128) != 0 || getsockname(iSocket, reinterpret_cast<sockaddr*>(&address), &uSize) != 0) {
    giveUp("listen");
  }
  uPort = ntohs(address.sin_port);
  return iSocket;
}

std::uint16_t freePort() {
  std::uint16_t uPort = 0;
  close(listener(uPort));
  return uPort;
}

void sendAtOnce(int iSocket) {
  const int iOn = 1;
  setsockopt(iSocket, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof iOn);
}

int connectTo(std::uint16_t uPort) {
  for (int iTry = 0; iTry < 500; ++iTry) {
    const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(uPort);
    if (connect(iSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
      sendAtOnce(iSocket);
      return iSocket;
    }
    close(iSocket);
    usleep(10'000);
  }
  giveUp("connect");
}

/// Takes exactly so many bytes, in as many receives as it needs.
void receiveAll(int iSocket, std::size_t uBytes) {
  char bytes[4096];
  while (uBytes != 0) {
    const ssize_t iGot = recv(iSocket, bytes, std::min(uBytes, sizeof bytes), 0);
    if (iGot <= 0) {
      giveUp("recv");
    }
    uBytes -= static_cast<std::size_t>(iGot);
  }
}

/// Echoes answers for requests without looking at them.
void serveBare(int iListener) {
  const int iSocket = accept(iListener, nullptr, nullptr);
  sendAtOnce(iSocket);
  const std::string sAnswer = kAnswer;
  const std::size_t uRequest = std::string(kRequest).size();
  char bytes[4096];
  std::size_t uHeld = 0;
  for (ssize_t iGot = 0; (iGot = recv(iSocket, bytes, sizeof bytes, 0)) > 0;) {
    uHeld += static_cast<std::size_t>(iGot);
    if (uHeld >= uRequest) {
      uHeld -= uRequest;
      send(iSocket, sAnswer.data(), sAnswer.size(), MSG_NOSIGNAL);
    }
  }
}

double ourCalls(JRPCClient& client) {
  return qm_bench::seconds([&] {
    for (int iCall = 0; iCall < kCalls; ++iCall) {
      JVariant source("SourceName", "entrance camera 1");
      const JVariant fps("Fps", 25, &source);
      const auto pAnswer = client.call("rpc_getSpan", &fps, -1);
      std::int64_t iStart = 0;
      std::int64_t iEnd = 0;
      std::int32_t iFps = 0;
      std::string sSource;
      pAnswer->get("Start", iStart, true);
      pAnswer->get("End", iEnd, true);
      pAnswer->get("Fps", iFps, true);
      pAnswer->get("SourceName", sSource, true);
      qm_bench::keep(iStart + iEnd + iFps);
    }
  });
}

double storeCalls(redisContext* pStore, const std::string& sKey) {
  return qm_bench::seconds([&] {
    for (int iCall = 0; iCall < kCalls; ++iCall) {
      auto* const pReply = static_cast<redisReply*>(redisCommand(pStore, "GET %b", sKey.data(), sKey.size()));
      if (pReply == nullptr || pReply->type != REDIS_REPLY_STRING) {
        giveUp("GET");
      }
      freeReplyObject(pReply);
    }
  });
}

double bareCalls(int iSocket) {
  const std::string sRequest = kRequest;
  const std::size_t uAnswer = std::string(kAnswer).size();
  return qm_bench::seconds([&] {
    for (int iCall = 0; iCall < kCalls; ++iCall) {
      send(iSocket, sRequest.data(), sRequest.size(), MSG_NOSIGNAL);
      receiveAll(iSocket, uAnswer);
    }
  });
}

/// Keeps a request under way on each connection, from one thread, as the store's load generator does. Seconds
/// for `kAnswers` answers.
double drive(std::uint16_t uPort, std::size_t uConnections) {
  const std::string sRequest = kRequest;
  const std::size_t uAnswer = std::string(kAnswer).size();
  std::vector<pollfd> connections;
  std::vector<std::size_t> missing(uConnections, uAnswer);
  for (std::size_t index = 0; index < uConnections; ++index) {
    connections.push_back({connectTo(uPort), POLLIN, 0});
  }
  const double dSeconds = qm_bench::seconds([&] {
    for (const pollfd& connection : connections) {
      send(connection.fd, sRequest.data(), sRequest.size(), MSG_NOSIGNAL);
    }
    char bytes[4096];
    for (int iAnswers = 0; iAnswers < kAnswers;) {
      poll(connections.data(), connections.size(), -1);
      for (std::size_t index = 0; index < uConnections; ++index) {
        if (connections[index].revents == 0) {
          continue;
        }
        const ssize_t iGot = recv(connections[index].fd, bytes, missing[index], 0);
        if (iGot <= 0) {
          giveUp("recv");
        }
        missing[index] -= static_cast<std::size_t>(iGot);
        if (missing[index] == 0) {
          missing[index] = uAnswer;
          ++iAnswers;
          send(connections[index].fd, sRequest.data(), sRequest.size(), MSG_NOSIGNAL);
        }
      }
    }
  });
  for (const pollfd& connection : connections) {
    close(connection.fd);
  }
  return dSeconds;
}

/// What the store's own load generator needs for as many answers.
double driveStore(std::uint16_t uPort, std::size_t uConnections, const std::string& sKey) {
  const std::string sCommand = "redis-benchmark -p " + std::to_string(uPort) + " -c " +
                               std::to_string(uConnections) + " -n " + std::to_string(kAnswers) +
                               " --csv GET '" + sKey + "' 2>/dev/null";
  FILE* const pPipe = popen(sCommand.c_str(), "r");
  char szLine[512];
  double dRate = 0;
  while (pPipe != nullptr && std::fgets(szLine, sizeof szLine, pPipe) != nullptr) {
    const std::string sLine = szLine;
    const std::size_t uComma = sLine.find("\",\"");
    if (uComma != std::string::npos) {
      dRate = std::max(dRate, std::atof(sLine.c_str() + uComma + 3));
    }
  }
  if (pPipe == nullptr || pclose(pPipe) != 0 || dRate <= 0) {
    giveUp("redis-benchmark");
  }
  return kAnswers / dRate;
}

void startStore(std::uint16_t uPort) {
  const std::string sPort = std::to_string(uPort);
  execlp("redis-server", "redis-server", "--port", sPort.c_str(), "--bind", "127.0.0.1", "--save", "",
         "--appendonly", "no", "--logfile", "/dev/null", nullptr);
  giveUp("redis-server");
}

// A search answer.

class Row : public JRPCObject {
 public:
  Row() : JRPCObject("StorageSearchItem") {}

  void serialise(JRPCSerialisation& target) const override {
    target.serialise("DataType", sType);
    target.serialise("FPS", iFps);
    target.serialise("SourceName", sSource);
    target.serialise("StartDate", uStart);
    target.serialise("EndDate", uEnd);
  }
  void deserialise(JRPCDeserialisation& source, bool /*bRequired*/) override {
    source.deserialise("DataType", sType, true);
    source.deserialise("FPS", iFps, true);
    source.deserialise("SourceName", sSource, true);
    source.deserialise("StartDate", uStart, true);
    source.deserialise("EndDate", uEnd, true);
  }

  std::string sType = "video/x-qmv2";
  std::string sSource = "entrance camera 1";
  std::int32_t iFps = 25;
  std::uint64_t uStart = 12943612800000000U;
  std::uint64_t uEnd = 12943612860000000U;
};

void rowScenario() {
  constexpr std::size_t kRows = 200'000;
  JParams params;
  JRPCSerialisation target(&params);
  for (std::size_t uRow = 0; uRow < kRows; ++uRow) {
    target.serialise("vec" + std::to_string(uRow), Row());
  }
  std::string sText;
  params.toText(sText);
  JParams parsed;
  parsed.parse(sText);
  const auto readRows = [&] {
    return qm_bench::seconds([&] {
      JRPCDeserialisation source(&parsed, false);
      std::vector<Row> rows(kRows);
      char szName[16] = "vec";
      for (std::size_t uRow = 0; uRow < kRows; ++uRow) {
        std::snprintf(szName + 3, sizeof szName - 3, "%zu", uRow);
        source.deserialise(szName, rows[uRow], true);
      }
      qm_bench::keep(rows);
    });
  };
  const auto parseText = [&] {
    return qm_bench::seconds([&] {
      JParams list;
      list.parse(sText);
      qm_bench::keep(list);
    });
  };
  qm_bench::compare({"read 200,000 rows", "parsing the list's text"}, readRows, parseText);
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const std::string sKey = kRequest;
  const std::string sPlainKey = "rpc_getSpan(Fps=25,SourceName=entrance_camera_1)";

  // Every server is started before this process has threads.
  int ports[2];
  if (pipe(ports) != 0) {
    giveUp("pipe");
  }
  const Child server([&] {
    JLog::init(0);
    Service service;
    service.start();
    const std::uint16_t uPort = service.getPort();
    if (write(ports[1], &uPort, sizeof uPort) != sizeof uPort) {
      giveUp("write");
    }
    pause();
  });
  std::uint16_t uPort = 0;
  if (read(ports[0], &uPort, sizeof uPort) != sizeof uPort) {
    giveUp("read");
  }
  std::uint16_t uBarePort = 0;
  const int iBareListener = listener(uBarePort);
  const Child bare([&] { serveBare(iBareListener); });
  const std::uint16_t uStorePort = freePort();
  const Child store([&] { startStore(uStorePort); });
  close(connectTo(uStorePort));

  JLog::init(0);
  redisContext* const pStore = redisConnect("127.0.0.1", uStorePort);
  if (pStore == nullptr || pStore->err != 0) {
    giveUp("redisConnect");
  }
  for (const std::string& sName : {sKey, sPlainKey}) {
    freeReplyObject(redisCommand(pStore, "SET %b %s", sName.data(), sName.size(), kAnswer));
  }

  JRPCClient::Settings settings;
  settings.sHost = "127.0.0.1";
  settings.iPort = uPort;
  settings.bConnectNow = true;
  settings.bStartThread = false;
  try {
    JRPCClient client(settings);
    const int iBare = connectTo(uBarePort);
    qm_bench::compare(
        {"call", "hiredis GET", 1.15}, [&] { return ourCalls(client); },
        [&] { return storeCalls(pStore, sKey); });
    qm_bench::compare(
        {"call", "bare send and receive", 0.85}, [&] { return ourCalls(client); },
        [&] { return bareCalls(iBare); });
    for (const std::size_t uConnections : {std::size_t{1}, std::size_t{10}, std::size_t{50}}) {
      qm_bench::compare(
          {std::to_string(uConnections) + " connections", "redis-benchmark GET",
           uConnections == 50 ? 1.5 : 0.0, 5},
          [&] { return drive(uPort, uConnections); },
          [&] { return driveStore(uStorePort, uConnections, sPlainKey); });
    }
    rowScenario();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    std::fprintf(stderr, "%s\n", error->getMessage().c_str());
    return 1;
  }
  redisFree(pStore);
  return 0;
}
