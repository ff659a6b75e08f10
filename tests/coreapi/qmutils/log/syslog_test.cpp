#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "coreapi/platform/faultseam.h"
#include "coreapi/platform/netname.h"
#include "coreapi/qmutils/log/JLogSyslog.h"
#include "coreapi/qmutils/socket/judpsocket.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "tests/coreapi/qmutils/log/log_test_support.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"

namespace {

using qm_test::makeRecord;

JLog::Msg recordAt(std::uint32_t uLevel, const std::string& sMessage) {
  JLog::Msg record = makeRecord(sMessage, uLevel);
  record.time = JLocalSplitTime(3, 5, 2011, 7, 8, 9, 123456).getTime();
  return record;
}

JLogSyslog::Settings settingsFor(std::uint16_t uPort) {
  JLogSyslog::Settings settings;
  settings.sServer = "127.0.0.1";
  settings.sHostName = "my host\t1";
  settings.uLocalPort = 0;
  settings.uServerPort = uPort;
  return settings;
}

/// A server that keeps what it gets.
class Receiver {
 public:
  Receiver() : m_socket(std::uint16_t{0}) { m_socket.setReadTimeout(60'000); }
  std::uint16_t port() const { return m_socket.getLocalPort(); }
  std::string take() {
    char buffer[2048];
    return {buffer, m_socket.read(buffer, sizeof buffer)};
  }

 private:
  JUDPSocket m_socket;
};

TEST(LogSyslog, SendsTheTraditionalForm) {
  Receiver server;
  JLogSyslog::Settings settings = settingsFor(server.port());
  settings.iPrecedence = 5;
  JLogSyslog output("syslog", settings, 0x1FFE, "%m", 10, 0, false);
  EXPECT_EQ(output.JThread::getName(),
            "syslog [Log:Out:Formatted:Syslog to 127.0.0.1:" + std::to_string(server.port()) + "]");
  constexpr std::pair<std::uint32_t, int> kPriorities[] = {{1, 135},  {2, 133},  {3, 135}, {4, 135},
                                                           {5, 133},  {8, 134},  {9, 132}, {10, 133},
                                                           {11, 131}, {12, 130}, {21, 133}};
  for (const auto& [uLevel, iPriority] : kPriorities) {
    output.write(recordAt(uLevel, "a\nb"));
    EXPECT_EQ(server.take(), "<" + std::to_string(iPriority) + ">Mar  5 07:08:09 my_host_1 a b");
  }
  output.write(recordAt(8, std::string(2000, 'x')));
  EXPECT_THAT(server.take(), testing::SizeIs(1024));
}

TEST(LogSyslog, TakesItsSettingsFromTheKey) {
  Receiver server;
  const qm_test::TestKey key({{"Server", "127.0.0.1"}, {"Format", "%w:%m"}},
                             {{"ServerPort", server.port()}, {"LocalPort", 0}, {"Facility", 1}});
  JLogSyslog output("syslog", key.get(), 10, 0, true);
  output.write(recordAt(8, "a"));
  EXPECT_EQ(server.take(), "<14>Mar  5 07:08:09 " + qm_platform::computerName() + " INFO:a");
  output.stop(-1, true);
}

struct FailureRow {
  const char* name;
  void (*change)(JLogSyslog::Settings&);
  std::uint64_t uFailedCall;  ///< of those on sockets; 0: none
  const char* szText;
};

TEST(LogSyslogFailures, AreToldAndDropAllLines) {
  const FailureRow rows[] = {
      {"NoServer", [](auto& settings) { settings.sServer.clear(); }, 0, "missing \"Server\" key in registry"},
      {"UnknownServer", [](auto& settings) { settings.sServer = "no.such.host"; }, 1,
       "could not resolve syslog server DNS name(no.such.host): "},
      {"NoSuchInterface", [](auto& settings) { settings.uInterface = 999; }, 0,
       "could not find IP interface #999: "},
      {"NoPort", [](auto& settings) { settings.uLocalPort = 70000; }, 0,
       "could not bind on local port (70000): "},
      {"ForeignAddress", [](auto& settings) { settings.sServer = "255.255.255.255"; }, 0,
       "could not connect to syslog server: "},
      {"WrongPrecedence", [](auto& settings) { settings.iPrecedence = 8; }, 0,
       "could not connect to syslog server: "}};
  for (const FailureRow& row : rows) {
    SCOPED_TRACE(row.name);
    const qm_test::LogCapture log;
    JLogSyslog::Settings settings = settingsFor(9);
    row.change(settings);
    if (row.uFailedCall != 0) {
      qm_platform::armFaults({.seams = static_cast<std::uint32_t>(qm_platform::Seam::kSocket),
                              .nth = row.uFailedCall,
                              .error = EACCES});
    }
    JLogSyslog output("syslog", settings, 0, nullptr, 10, 0, false);
    qm_platform::disarmFaults();
    std::vector<std::string> errors;
    for (const qm_test::LoggedMessage& message : log.messages()) {
      if (message.level == qm_err::kLogError) {
        errors.push_back(message.text);
      }
    }
    EXPECT_THAT(errors, testing::ElementsAre(testing::StartsWith(
                            std::string("SysLog network logging not started: ") + row.szText)));
    output.write(makeRecord("x"));
    EXPECT_EQ(output.getLostCount(), 0U);
  }
}

/// Debian's own server, on a port of the loopback and with a configuration of its own. It writes each line
/// that it has understood to a pipe.
class SyslogServer {
 public:
  static constexpr const char* kProgram = "/usr/sbin/rsyslogd";

  explicit SyslogServer(std::uint16_t uPort) {
    const std::string sPipe = m_directory.path("pipe");
    mkfifo(sPipe.c_str(), 0600);
    m_iPipe = ::open(sPipe.c_str(), O_RDWR | O_CLOEXEC);
    const std::string sConfig = m_directory.write(
        "conf",
        "module(load=\"imudp\")\n"
        "template(name=\"t\" type=\"string\" "
        "string=\"%syslogfacility-text%.%syslogseverity-text%|%timereported%|%hostname%|%rawmsg%\\n\")\n"
        "input(type=\"imudp\" address=\"127.0.0.1\" port=\"" +
            std::to_string(uPort) +
            "\" ruleset=\"r\")\n"
            "ruleset(name=\"r\") { action(type=\"ompipe\" pipe=\"" +
            sPipe + "\" template=\"t\") }\n");
    const std::string sPidFile = m_directory.path("pid");
    const char* arguments[] = {kProgram, "-n", "-f", sConfig.c_str(), "-i", sPidFile.c_str(), nullptr};
    if (posix_spawn(&m_process, kProgram, nullptr, nullptr, const_cast<char**>(arguments), environ) != 0) {
      m_process = 0;
    }
  }
  ~SyslogServer() {
    if (m_process > 0) {
      kill(m_process, SIGTERM);
      waitpid(m_process, nullptr, 0);
    }
    ::close(m_iPipe);
  }
  SyslogServer(const SyslogServer&) = delete;
  SyslogServer& operator=(const SyslogServer&) = delete;

  /// The next line that it writes; empty when none comes in time.
  std::string takeLine(int iTimeout) {
    std::string sLine;
    pollfd wait{m_iPipe, POLLIN, 0};
    for (char c = 0; poll(&wait, 1, iTimeout) == 1 && ::read(m_iPipe, &c, 1) == 1 && c != '\n';) {
      sLine += c;
    }
    return sLine;
  }

 private:
  const qm_test::TempDir m_directory;
  int m_iPipe = -1;
  pid_t m_process = 0;
};

TEST(LogSyslog, IsUnderstoodByAServer) {
  if (!std::filesystem::exists(SyslogServer::kProgram)) {
    GTEST_SKIP() << "rsyslogd isn't installed (package rsyslog)";
  }
  const std::uint16_t uPort = Receiver().port();  // free a moment ago
  SyslogServer server(uPort);
  JLogSyslog output("syslog", settingsFor(uPort), 0, "%w %i: %m", 10, 0, false);
  std::string sLine;
  for (int i = 0; i < 600 && sLine.find("first") == std::string::npos; ++i) {  // until it listens
    output.write(recordAt(qm_err::kLogInfo, "first"));
    sLine = server.takeLine(100);
  }
  JLog::Msg record = recordAt(qm_err::kLogCritical, "größer\nals %d <12>");
  record.sInstance = "inst";
  output.write(record);
  for (int i = 0; i < 600 && sLine.find("inst") == std::string::npos; ++i) {
    sLine = server.takeLine(1000);
  }
  EXPECT_EQ(
      sLine,
      "local0.crit|Mar  5 07:08:09|my_host_1|<130>Mar  5 07:08:09 my_host_1 CRITICAL inst: größer als %d "
      "<12>");
}

}  // namespace
