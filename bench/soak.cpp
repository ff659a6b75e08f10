// Eight clients that search, change and copy for a while against a real Manager's process, to see that
// nothing grows. The archive stands in the temporary directory and goes with this.
//
//   soak_manager PROGRAM SECONDS      PROGRAM is qmmanagerd
//
// Resident memory, threads and open file handles of both processes are taken from /proc and printed, a line
// for each sample. The first half of the samples is the time in which caches fill; then the largest figure of
// the last quarter may be above the largest one of the third by no more than
//
//     memory   8 MiB and a sixteenth       heaps keep what they were given, in pieces
//     threads  8, handles 24               one copy more or less at the instant of a sample, for each client
//
// A leak of one thread or handle, or of a few kilobytes, in each round of a client is far above that after
// some minutes. Exit status 0 when nothing grew and every operation was done, else 1.

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/benchunit.h"
#include "coreapi/platform/childprocess.h"
#include "coreapi/platform/clock.h"
#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController.h"
#include "qmmanager/archiveroot.h"
#include "storage/FileInfo.h"

namespace {

namespace fs = std::filesystem;

constexpr int kClients = 8;
constexpr std::int32_t kFps = 25;
constexpr int kSources = 4;
constexpr std::uint64_t kFrames = 250;
constexpr std::uint64_t kSlices = 8;
constexpr std::uint64_t kPeriod = 40'000;
constexpr std::uint64_t kFrameSize = 16 * 1024;
constexpr int kRoundsOfAConnection = 20;

[[noreturn]] void giveUp(const std::string& sWhy) {
  std::fprintf(stderr, "soak_manager: %s\n", sWhy.c_str());
  std::exit(1);
}

std::string dateOf(std::uint64_t uFrame) {
  return JTime::fromMicroseconds(qm_bench::kUnitBegin + uFrame * kPeriod).toUSFormat();
}

// The Manager's process.

class Daemon {
 public:
  Daemon(const std::string& sProgram, const std::string& sArchive) {
    int iWriteEnd = qm_platform::kNoDescriptor;
    qm_platform::ChildPlan plan;
    plan.arguments = {sProgram, "--archive", sArchive, "--port", "0", "--log-level", "critical"};
    qm_platform::copyEnvironment(plan.environment);
    if (qm_platform::makePipe(m_iPipe, iWriteEnd) != 0) {
      giveUp("no pipe");
    }
    plan.standard = {qm_platform::kNoDescriptor, iWriteEnd, qm_platform::kNoDescriptor};
    if (qm_platform::startChild(plan, m_iChild) != 0) {
      giveUp("can't run " + sProgram);
    }
    qm_platform::closeDescriptor(iWriteEnd);
  }

  std::uint16_t port() const {
    std::string sLine;
    char c = 0;
    for (std::size_t uRead = 0;
         c != '\n' && qm_platform::readSome(m_iPipe, &c, 1, uRead) == 0 && uRead == 1;) {
      sLine += c;
    }
    const std::size_t uColon = sLine.rfind(':');
    if (uColon == std::string::npos) {
      giveUp("the Manager doesn't start");
    }
    return static_cast<std::uint16_t>(std::stoi(sLine.substr(uColon + 1)));
  }

  int getProcess() const noexcept { return m_iChild; }

  /// The exit status.
  int end() const {
    ::kill(m_iChild, SIGTERM);
    bool bEnded = false;
    int iStatus = -1;
    qm_platform::awaitChild(m_iChild, true, bEnded);
    qm_platform::takeExitCode(m_iChild, iStatus);
    return iStatus;
  }

 private:
  int m_iPipe = qm_platform::kNoDescriptor;
  int m_iChild = qm_platform::kNoChild;
};

// The clients.

std::atomic<bool> g_bEnd{false};
std::atomic<std::uint64_t> g_uRounds{0};
std::atomic<std::uint64_t> g_uFailures{0};

class Client {
 public:
  Client(int iNumber, std::uint16_t uPort, std::string sDirectory)
      : m_iNumber(iNumber), m_uPort(uPort), m_sDirectory(std::move(sDirectory)) {}

  void run() {
    while (!g_bEnd) {
      StorageAccessController control(nullptr);
      control.setHost("127.0.0.1");
      control.setPort(m_uPort);
      control.setTimeOut(60'000);
      control.setBlocking(true);
      check(control, "connect", control.connect());
      for (int i = 0; i < kRoundsOfAConnection && !g_bEnd; ++i) {
        round(control);
        ++g_uRounds;
      }
    }
  }

 private:
  void check(StorageAccessController& control, const char* szWhat, std::int32_t iResult) {
    if (iResult != 0) {
      ++g_uFailures;
      std::printf("client %d: %s failed: %s\n", m_iNumber, szWhat, control.getLastError().c_str());
    }
  }

  void walk(StorageAccessController& control, const char* szWhat, std::int32_t iQuery) {
    check(control, szWhat, iQuery != 0 ? 0 : -1);
    while (iQuery != 0 && !control.getNext(iQuery).empty()) {
    }
  }

  void round(StorageAccessController& control) {
    const std::string sSource = "cam-" + std::to_string(m_uRound % kSources);
    const std::string sName = "client " + std::to_string(m_iNumber);
    const std::uint64_t uAt = m_uRound++ * 37 % (kFrames * (kSlices - 2));
    const std::string sStart = dateOf(uAt);
    const std::string sEnd = dateOf(uAt + kFrames);
    walk(control, "search", control.databaseQuery("SourceName=\"cam-*\""));
    walk(control, "sources", control.sourcesQuery());
    check(control, "alarm", control.alarm(sSource, kFps, sName, sStart, sStart, sEnd));
    walk(control, "alarms", control.alarmLogQuery(sSource, kFps));
    check(control, "remove alarm", control.removeAlarmByInterval(sSource, kFps, sName, sStart, sEnd));
    check(control, "protect", control.protect(sSource, kFps, sStart, sEnd, "", "", sName));
    walk(control, "protections", control.protectedLogQuery(sSource, kFps));
    check(control, "unprotect", control.unprotect(sSource, kFps, sStart, sEnd));
    check(control, "metadata", control.setMetaData(sSource, kFps, sStart, sEnd, "by=\"" + sName + "\""));
    walk(control, "metadata log", control.metaDataLogQuery(sSource, kFps));
    check(control, "unset metadata", control.unsetMetaData(sSource, kFps, sStart, sEnd, "by"));
    check(control, "size", control.getRecordingSize(sSource, kFps, sStart, sEnd) > 1 ? 0 : -1);
    const std::string sPath = m_sDirectory + "/" + std::to_string(m_iNumber) + ".asf";
    check(control, "copy", control.remoteCopy(sSource, kFps, sPath, sStart, sEnd));
    fs::remove(sPath);
  }

  const int m_iNumber;
  const std::uint16_t m_uPort;
  const std::string m_sDirectory;
  std::uint64_t m_uRound = static_cast<std::uint64_t>(m_iNumber) * 11;
};

// The figures.

struct Figures {
  std::int64_t iMemory = 0;  ///< KiB
  std::int64_t iThreads = 0;
  std::int64_t iHandles = 0;
};

Figures figuresOf(int iProcess) {
  const std::string sProc = "/proc/" + std::to_string(iProcess);
  Figures figures;
  std::ifstream status(sProc + "/status");
  for (std::string sWord; status >> sWord;) {
    if (sWord == "VmRSS:") {
      status >> figures.iMemory;
    } else if (sWord == "Threads:") {
      status >> figures.iThreads;
    }
  }
  std::error_code gone;
  figures.iHandles = std::distance(fs::directory_iterator(sProc + "/fd", gone), fs::directory_iterator());
  return figures;
}

/// Whether a figure is larger at the end than it was when everything had been in use.
bool grew(const char* szProcess, const char* szFigure, const std::vector<Figures>& samples,
          std::int64_t Figures::*pFigure, std::int64_t iAllowed, std::int64_t iPart) {
  const auto largest = [&](std::size_t uFrom, std::size_t uTo) {
    std::int64_t iLargest = 0;
    for (std::size_t i = uFrom; i < uTo; ++i) {
      iLargest = std::max(iLargest, samples[i].*pFigure);
    }
    return iLargest;
  };
  const std::size_t uQuarter = samples.size() / 4;
  const std::int64_t iBefore = largest(2 * uQuarter, 3 * uQuarter);
  const std::int64_t iAfter = largest(3 * uQuarter, samples.size());
  const std::int64_t iLimit = iBefore + iAllowed + (iPart != 0 ? iBefore / iPart : 0);
  const bool bGrew = iAfter > iLimit;
  std::printf("%-8s %-8s %8lld, then %8lld, at most %8lld%s\n", szProcess, szFigure,
              static_cast<long long>(iBefore), static_cast<long long>(iAfter), static_cast<long long>(iLimit),
              bGrew ? "   GREW" : "");
  return bGrew;
}

bool grewAny(const char* szProcess, const std::vector<Figures>& samples) {
  const bool bMemory = grew(szProcess, "memory", samples, &Figures::iMemory, 8 * 1024, 16);
  const bool bThreads = grew(szProcess, "threads", samples, &Figures::iThreads, 8, 0);
  const bool bHandles = grew(szProcess, "handles", samples, &Figures::iHandles, 24, 0);
  return bMemory || bThreads || bHandles;
}

int soak(const std::string& sProgram, int iSeconds, const std::string& sDirectory) {
  const std::string sArchive = sDirectory + "/archive";
  { const qm_manager::ArchiveRoot root(sArchive, qm_manager::ArchiveRoot::Creation::kWhenEmpty); }
  for (int i = 0; i < kSources; ++i) {
    qm_bench::recordUnit(sArchive, "cam-" + std::to_string(i), kFps,
                         {.uFrame = kFrameSize, .uFrames = kFrames, .uSlices = kSlices, .uPeriod = kPeriod});
  }
  const Daemon daemon(sProgram, sArchive);
  const std::uint16_t uPort = daemon.port();
  std::vector<std::thread> threads;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([=] { Client(i, uPort, sDirectory).run(); });
  }
  std::vector<Figures> manager;
  std::vector<Figures> clients;
  const std::int64_t iStart = qm_platform::steadyClockNanoseconds();
  const auto elapsed = [&] { return (qm_platform::steadyClockNanoseconds() - iStart) / 1'000'000'000; };
  const int iPause = std::clamp(iSeconds / 40, 1, 5);
  std::printf("%8s %8s   %28s   %28s\n%8s %8s   %10s %8s %8s   %10s %8s %8s\n", "seconds", "rounds",
              "Manager", "clients", "", "", "KiB", "threads", "handles", "KiB", "threads", "handles");
  while (elapsed() < iSeconds) {
    std::this_thread::sleep_for(std::chrono::seconds(iPause));
    const Figures& m = manager.emplace_back(figuresOf(daemon.getProcess()));
    const Figures& c = clients.emplace_back(figuresOf(static_cast<int>(qm_platform::processId())));
    std::printf("%8lld %8llu   %10lld %8lld %8lld   %10lld %8lld %8lld\n", static_cast<long long>(elapsed()),
                static_cast<unsigned long long>(g_uRounds), static_cast<long long>(m.iMemory),
                static_cast<long long>(m.iThreads), static_cast<long long>(m.iHandles),
                static_cast<long long>(c.iMemory), static_cast<long long>(c.iThreads),
                static_cast<long long>(c.iHandles));
    std::fflush(stdout);
  }
  g_bEnd = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  const int iStatus = daemon.end();
  const bool bManager = grewAny("Manager", manager);
  const bool bClients = grewAny("clients", clients);
  std::printf("%llu rounds, %llu failures, the Manager ended with %d\n",
              static_cast<unsigned long long>(g_uRounds), static_cast<unsigned long long>(g_uFailures),
              iStatus);
  return bManager || bClients || g_uFailures != 0 || iStatus != 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int iSeconds = argc == 3 ? std::atoi(argv[2]) : 0;
  if (iSeconds < 8) {
    giveUp("usage: soak_manager PROGRAM SECONDS, 8 at least");
  }
  JLog::init();
  JLog::deleteOutputs();
  std::string sDirectory = (fs::temp_directory_path() / "qmsoakXXXXXX").string();
  if (mkdtemp(sDirectory.data()) == nullptr) {
    giveUp("mkdtemp");
  }
  int iStatus = 1;
  try {
    const QMXmlUse xmlUse;
    iStatus = soak(argv[1], iSeconds, sDirectory);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    std::fprintf(stderr, "soak_manager: %s\n", error->getMessage().c_str());
  }
  fs::remove_all(sDirectory);
  return iStatus;
}
