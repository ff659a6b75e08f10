#include <csignal>
#include <gmock/gmock.h>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "coreapi/platform/childprocess.h"
#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "qmmanager/archiveroot.h"
#include "tests/qmmanager/servedarchive.h"
#include "tests/storage/readersupport.h"

namespace {

using namespace qm_test;
using testing::HasSubstr;
using testing::StartsWith;

/// The program, with its standard output and error in one pipe.
class Daemon {
 public:
  explicit Daemon(std::vector<std::string> arguments) {
    int writeEnd = 0;
    EXPECT_EQ(qm_platform::makePipe(m_pipe, writeEnd), 0);
    qm_platform::ChildPlan plan;
    plan.arguments = std::move(arguments);
    plan.arguments.insert(plan.arguments.begin(), QM_DAEMON);
    qm_platform::copyEnvironment(plan.environment);
    plan.standard = {qm_platform::kNoDescriptor, writeEnd, writeEnd};
    EXPECT_EQ(qm_platform::startChild(plan, m_child), 0);
    qm_platform::closeDescriptor(writeEnd);
  }
  ~Daemon() {
    if (m_child != qm_platform::kNoChild) {
      end(SIGKILL);
    }
    hangUp();
  }

  /// The port that it says it listens on; 0 when it says nothing of the kind. Its log may come in between.
  std::uint16_t port() {
    constexpr std::string_view kWords = "listening on 127.0.0.1:";
    std::size_t start = std::string::npos;
    do {
      start = m_sOut.find(kWords);
    } while ((start == std::string::npos || m_sOut.find('\n', start) == std::string::npos) && readSome());
    EXPECT_NE(start, std::string::npos) << m_sOut;
    return start == std::string::npos
               ? std::uint16_t{0}
               : static_cast<std::uint16_t>(std::stoi(m_sOut.substr(start + kWords.size())));
  }

  /// Sends a signal, unless that is 0, and waits for the end; the exit status.
  int end(int iSignal) {
    if (iSignal != 0) {
      ::kill(m_child, iSignal);
    }
    while (readSome()) {
    }
    bool bEnded = false;
    int iStatus = -1;
    qm_platform::awaitChild(m_child, true, bEnded);
    qm_platform::takeExitCode(m_child, iStatus);
    m_child = qm_platform::kNoChild;
    return iStatus;
  }

  /// Reads no more of what it writes.
  void hangUp() {
    if (m_pipe != qm_platform::kNoDescriptor) {
      qm_platform::closeDescriptor(std::exchange(m_pipe, qm_platform::kNoDescriptor));
    }
  }

  /// For another thread.
  void kill() const { ::kill(m_child, SIGKILL); }

  /// All that it has written, after `end`.
  const std::string& out() const { return m_sOut; }

 private:
  bool readSome() {
    char block[4096];
    std::size_t uRead = 0;
    if (m_pipe == qm_platform::kNoDescriptor ||
        qm_platform::readSome(m_pipe, block, sizeof block, uRead) != 0 || uRead == 0) {
      return false;
    }
    m_sOut.append(block, uRead);
    return true;
  }

  int m_pipe = qm_platform::kNoDescriptor;
  int m_child = qm_platform::kNoChild;
  std::string m_sOut;
};

TEST(ManagerProgram, TellsHowItEnds) {
  ServedArchive served;
  served.record("gate", 25, 0, 5, wholeVideoStream());
  for (const int iSignal : {SIGTERM, SIGINT}) {
    const auto previous = std::signal(iSignal, SIG_IGN);  // as a shell starts it in the background
    Daemon daemon({"--archive", served.root(), "--port", "0"});
    std::signal(iSignal, previous);
    LineClient client(daemon.port());
    EXPECT_THAT(client.ask("rpc_getSourceMap()"), HasSubstr("\"gate\""));
    EXPECT_EQ(daemon.end(iSignal), 0);
    EXPECT_EQ(client.ask("PING"), "closed");
  }
  {
    Daemon daemon({"--archive", served.root(), "--port", "0", "--log-level", "fulldebug"});
    const std::uint16_t uPort = daemon.port();
    daemon.hangUp();  // whoever reads its log has gone
    EXPECT_THAT(LineClient(uPort).ask("rpc_getSourceMap()"), HasSubstr("\"gate\""));
    EXPECT_EQ(daemon.end(SIGTERM), 0);
  }
  Daemon first({"--archive", served.root(), "--port", "0", "--rpc-version", "3.5"});
  EXPECT_EQ(LineClient(first.port()).ask("getRPCVersion()"), "OK RPCVersion=\"3.5\"");
  const struct {
    std::vector<std::string> arguments;
    int iStatus;
    const char* szSays;
  } kRows[] = {
      {{"--archive", served.root(), "--port", "0"}, 1, "is in use by another process"},
      {{"--archive", served.temp.path("")}, 1, "is not an archive: it has no file \"qmarchive\""},
      {{"--archive", served.temp.path("nowhere")}, 1, "is not an archive"},
      {{}, 2, "--archive is required"},
      {{"--archive", served.root(), "--rpc-version", "4.3"}, 2, "the dialect of version 4.3 isn't served"},
      {{"--archive", served.root(), "--rpc-version", "4"}, 2, "'4' is no version"},
      {{"--archive", served.root(), "--port", "65536"}, 2, "--port"},
      {{"--archive", served.root(), "--log-level", "loud"}, 2, "no log level 'loud'"},
      {{"--archive", served.root(), "--copy-dir", served.temp.path("nowhere")}, 2, "--copy-dir"},
      {{"--version"}, 0, "qmmanagerd "},
      {{"--help"}, 0, "listening on ADDRESS:PORT"},
  };
  for (const auto& row : kRows) {
    Daemon daemon(row.arguments);
    EXPECT_EQ(daemon.end(0), row.iStatus) << row.szSays;
    EXPECT_THAT(daemon.out(), HasSubstr(row.szSays));
  }
}

TEST(ManagerProgram, CanBeReachedThroughATunnel) {
  ServedArchive served;
  std::uint16_t uTunnel = 0;
  {
    const JRPCService free(0, "free");  // its port is free again right after this
    uTunnel = free.getPort();
  }
  Daemon daemon({"--archive", served.root(), "--port", "0", "--tunnel-port", std::to_string(uTunnel)});
  const std::string sPort = std::to_string(daemon.port());
  LineClient client(uTunnel);
  EXPECT_THAT(client.ask("rpc_getSourceMap()"), StartsWith("FAILED "));
  EXPECT_THAT(client.ask("getServicePorts()"), HasSubstr("servicePort[1]=" + sPort));
  EXPECT_EQ(client.ask("redirect(servicePort=" + sPort + ")"), "OK ");
  EXPECT_THAT(client.ask("rpc_getSourceMap()"), HasSubstr("jrpc_map_SourceMap__size=0"));
}

/// What a client was told: a thing is there, is gone, or may be either because no answer came.
enum class Told { kThere, kGone, kNothing };

/// Sends commands until the connection breaks. `uFirst` numbers the first one's thing.
class CommandStream {
 public:
  CommandStream(std::uint16_t uPort, std::string sSource, std::map<std::uint64_t, Told>& told)
      : m_client(uPort), m_sSource(std::move(sSource)), m_told(told) {}

  void run(std::uint64_t& uNext) {
    constexpr int kMostThings = 100;
    for (int i = 0; i < kMostThings; ++i) {
      const std::uint64_t uThing = uNext++;
      const std::string sStart = std::to_string(kBegin + uThing * 1'000'000);
      const std::string sEnd = std::to_string(kBegin + uThing * 1'000'000 + 500'000);
      const std::string sName = "thing " + std::to_string(uThing);
      const std::string sUnit = "(SourceName=\"" + m_sSource + "\",Fps=25,";
      m_told[uThing] = Told::kNothing;
      switch (uThing % 3) {
        case 0:
          tell(uThing, Told::kThere,
               "rpc_protect" + sUnit + "Details=\"" + sName +
                   "\",TsValidStart=0,TsValidEnd=0,TsProtectedStart=" + sStart + ",TsProtectedEnd=" + sEnd +
                   ")");
          break;
        case 1:
          tell(uThing, Told::kThere,
               "rpc_setMetaData" + sUnit + "Params=\"name=\\\"" + sName + "\\\"\",TsIntervalStart=" + sStart +
                   ",TsIntervalEnd=" + sEnd + ")");
          break;
        default:
          tell(uThing, Told::kThere,
               "rpc_alarm" + sUnit + "AlarmName=\"" + sName + "\",TsAlarmIncident=" + sStart +
                   ",TsAlarmStart=" + sStart + ",TsAlarmEnd=" + sEnd + ")");
          if (uThing % 2 == 0) {
            m_told[uThing] = Told::kNothing;
            tell(uThing, Told::kGone,
                 "rpc_removeAlarmByDate" + sUnit + "AlarmName=\"*\",TsAlarmIncident=" + sStart + ")");
          }
      }
    }
  }

 private:
  void tell(std::uint64_t uThing, Told told, const std::string& sRequest) {
    const std::string sAnswer = m_client.ask(sRequest);
    if (sAnswer == "closed") {
      QM_THROW(JTextError, "closed");
    }
    EXPECT_EQ(sAnswer, "OK ") << sRequest;
    m_told[uThing] = told;
  }

  LineClient m_client;
  const std::string m_sSource;
  std::map<std::uint64_t, Told>& m_told;
};

TEST(ManagerProgram, LosesNothingWhenItIsKilled) {
  constexpr int kKills = 50;
  constexpr int kSources = 10;  // each takes part in the alarm log's limit
  ServedArchive served;
  for (int i = 0; i < kSources; ++i) {
    served.unit("source " + std::to_string(i), 25);
  }
  std::map<std::uint64_t, Told> told[kSources];
  std::mt19937 random(20'110'303);
  std::uint64_t uNext = 0;
  for (int i = 0; i < kKills; ++i) {
    Daemon daemon({"--archive", served.root(), "--port", "0"});
    const std::uint16_t uPort = daemon.port();
    std::thread killer([&daemon, uDelay = random() % 200'000] {
      std::this_thread::sleep_for(std::chrono::microseconds(uDelay));
      daemon.kill();
    });
    thrownBy([&] {
      CommandStream(uPort, "source " + std::to_string(i % kSources), told[i % kSources]).run(uNext);
    });
    killer.join();
    EXPECT_EQ(daemon.end(0), 128 + SIGKILL);
  }

  Daemon daemon({"--archive", served.root(), "--port", "0"});
  LineClient client(daemon.port());
  std::size_t uCount[3] = {};
  for (int i = 0; i < kSources; ++i) {
    std::string sLogs;
    for (const char* const szFunction : {"rpc_getProtectedLog", "rpc_getAlarmLog", "rpc_getMetaDataLog"}) {
      sLogs +=
          client.ask(std::string(szFunction) + "(SourceName=\"source " + std::to_string(i) + "\",Fps=25)");
    }
    for (const auto& [uThing, eTold] : told[i]) {
      ++uCount[static_cast<int>(eTold)];
      const bool bThere = sLogs.find("thing " + std::to_string(uThing) + (uThing % 3 == 1 ? "\\\"" : "\"")) !=
                          std::string::npos;
      EXPECT_TRUE(eTold == Told::kNothing || bThere == (eTold == Told::kThere))
          << uThing << " of source " << i;
    }
  }
  std::printf("%zu there, %zu gone, %zu without an answer\n", uCount[0], uCount[1], uCount[2]);
  EXPECT_GT(uCount[0], 20U);
  EXPECT_GT(uCount[1], 2U);
}

}  // namespace
