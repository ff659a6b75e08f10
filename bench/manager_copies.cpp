// Copies that the Manager serves, each from the call of the controller to its return. The archive and the
// files that are made stand in the directory where the program was started, and in the page cache. The peer
// is a bare loop of recv and write, whose sender has its bytes in memory. A ratio of 0.85 means 18% more
// time.
//
//   served                 frames of 1, 4, 16, 64 and 200 KiB out of files of an archive, into an ASF file
//   eight at once          the time of the fastest of eight copies by that of the slowest

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/benchunit.h"
#include "bench/support/compare.h"
#include "bench/support/rawcopy.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"
#include "qmmanager/archive.h"
#include "qmmanager/manager.h"
#include "storage/FileInfo.h"

namespace {

namespace fs = std::filesystem;
using qm_manager::Archive;
using qm_manager::ArchiveRoot;

constexpr std::size_t kKibi = 1024;
constexpr std::size_t kSlice = 64 * kKibi * kKibi;
constexpr std::uint64_t kSlices = 3;
constexpr int kPairs = 7;
constexpr std::int32_t kFps = 25;
constexpr int kClients = 8;

std::string path(const std::string& sName) {
  return "manager_copies_" + std::to_string(qm_platform::processId()) + "/" + sName;
}

/// One client, and the seconds that its copy of a source takes.
class Client {
 public:
  explicit Client(const qm_manager::Manager& manager)
      : m_client({.sHost = "127.0.0.1", .iPort = manager.getPort(), .bConnectNow = true}) {}

  double copy(const std::string& sSource, const std::string& sPath) {
    fs::remove(sPath);
    return qm_bench::seconds([&] {
      if (m_control.remoteCopy(sSource, kFps, sPath, "03/03/2011 08:00:00.000000UTC",
                               "03/03/2011 20:00:00.000000UTC") != 0) {
        std::abort();
      }
    });
  }

 private:
  JRPCClient m_client;
  StorageAccessController3X4X m_control{m_client, 60'000};
};

/// Slowest and fastest of copies at once.
struct Extremes {
  double dSlowest = 0;
  double dFastest = 0;
};

Extremes copyAtOnce(std::vector<std::unique_ptr<Client>>& clients, const std::string& sSource) {
  std::vector<double> times(clients.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < clients.size(); ++i) {
    threads.emplace_back(
        [&, i] { times[i] = clients[i]->copy(sSource, path("copy" + std::to_string(i) + ".asf")); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto [fastest, slowest] = std::minmax_element(times.begin(), times.end());
  return {*slowest, *fastest};
}

void bench() {
  const struct {
    std::size_t uKibi;
    double dGoal;  ///< 0 where the row is for the record
  } rows[] = {{1, 0}, {4, 0}, {16, 0.75}, {64, 0.85}, {200, 0.85}};
  const std::string sRoot = path("archive");
  ArchiveRoot(sRoot, ArchiveRoot::Creation::kWhenEmpty);
  for (const auto& row : rows) {
    const std::size_t uFrame = row.uKibi * kKibi;
    qm_bench::recordUnit(sRoot, "frames-" + std::to_string(row.uKibi), kFps,
                         {.uFrame = uFrame, .uFrames = kSlice / uFrame, .uSlices = kSlices});
  }
  Archive archive(sRoot, ArchiveRoot::Creation::kExisting);
  qm_manager::Manager manager(archive, {});
  manager.start();
  std::vector<std::unique_ptr<Client>> clients;
  clients.push_back(std::make_unique<Client>(manager));
  for (const auto& row : rows) {
    const std::string sKibi = std::to_string(row.uKibi);
    qm_bench::compare(
        {"served, frames of " + sKibi + " KiB", "recv, write", row.dGoal, kPairs},
        [&] { return clients.front()->copy("frames-" + sKibi, path("copy.asf")); },
        [&] { return qm_bench::rawCopy(path("copy.asf"), row.uKibi * kKibi, kSlice * kSlices); });
  }
  while (clients.size() < kClients) {
    clients.push_back(std::make_unique<Client>(manager));
  }
  Extremes extremes;
  qm_bench::compare(
      {"eight at once, frames of 64 KiB", "the fastest", 0.5, 5},
      [&] {
        extremes = copyAtOnce(clients, "frames-64");
        return extremes.dSlowest;
      },
      [&] { return extremes.dFastest; });
}

}  // namespace

int main() {
  JLog::init();
  JLog::deleteOutputs();
  const QMXmlUse xmlUse;
  FileInfo::initCache(64);
  try {
    bench();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    fprintf(stderr, "%s\n", error->getMessage().c_str());
    std::abort();
  }
  FileInfo::closeCache();
  fs::remove_all(path(""));
}
