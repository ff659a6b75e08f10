// A whole remote copy into a file, from the call of the controller to its return, against a bare loop of recv
// and write with a buffer of 256 KiB. Both get the same bytes from the same sender over a loopback connection
// and write into a new file in the directory where the program was started; neither waits for the disk, so
// the page cache is what both write to. A ratio of 0.85 means 18% more time.
//
//   copy                   frames of 1, 4, 16, 64 and 200 KiB in a remote copy stream, into an ASF file

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "bench/support/compare.h"
#include "bench/support/rawcopy.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"

namespace {

constexpr std::size_t kKibi = 1024;
constexpr std::size_t kVolume = 192 * kKibi * kKibi;
constexpr int kPairs = 7;

std::string path() {
  return "copies_" + std::to_string(qm_platform::processId()) + ".asf";
}

/// A server that pushes frames of a size.
class Pusher : public JRPCTunnelService {
 public:
  Pusher() : JRPCTunnelService(JInetAddr("127.0.0.1", 0), "Pusher") {
    setVersion({4, 2});
    registerFunction("rpc_getStreamInfo", std::make_unique<RpcFunc<Pusher>>(&Pusher::getStreamInfo));
    registerFunction("rpc_remoteCopy", std::make_unique<RpcFunc<Pusher>>(&Pusher::remoteCopy));
    start();
  }
  ~Pusher() override { stop(); }

  std::size_t uFrame = 0;
  std::thread pushing;

 private:
  void getStreamInfo(JParams& /*parameters*/, JParams& answer) {
    const qm_ci::InfoBlock block =
        qm_ci::StreamDataInfo::make("application/x-test", "<d/>", 25, 1, static_cast<std::uint32_t>(uFrame));
    qm_ci::writeStreamInfoR30(makeStreamInfo(qm_ci::StreamDataInfo(block)), answer);
  }
  void remoteCopy(JParams& parameters, JParams& /*answer*/) {
    std::int32_t iPort = 0;
    parameters.get("BackupPort", iPort, true);
    pushing = std::thread(qm_bench::pushFrames, static_cast<std::uint16_t>(iPort), uFrame, kVolume);
  }
};

double ours(Pusher& pusher, StorageAccessController3X4X& control) {
  std::filesystem::remove(path());
  const double dSeconds = qm_bench::seconds([&] {
    if (control.remoteCopy("cam 1", 25, path(), "03/03/2011 10:00:00.000000UTC",
                           "03/03/2011 11:00:00.000000UTC") != 0) {
      std::abort();
    }
  });
  pusher.pushing.join();
  return dSeconds;
}

}  // namespace

int main() {
  JLog::init();
  JLog::deleteOutputs();
  Pusher pusher;
  JRPCClient client({.sHost = "127.0.0.1", .iPort = pusher.getPort(), .bConnectNow = true});
  StorageAccessController3X4X control(client, 60'000);
  const struct {
    std::size_t uKibi;
    double dGoal;  ///< 0 where the row is for the record
  } rows[] = {{1, 0}, {4, 0}, {16, 0.75}, {64, 0.85}, {200, 0.85}};
  for (const auto& row : rows) {
    pusher.uFrame = row.uKibi * kKibi;
    qm_bench::compare(
        {"copy, frames of " + std::to_string(row.uKibi) + " KiB", "recv, write", row.dGoal, kPairs},
        [&] { return ours(pusher, control); },
        [&] { return qm_bench::rawCopy(path(), pusher.uFrame, kVolume); });
  }
  std::filesystem::remove(path());
}
