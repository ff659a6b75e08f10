#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/log/JLogFileOutput.h"

// Logging into a file through the facade, from the first record until the last one is written: the output's
// thread has ended and the file holds every line.
//
// Both sides format "record %d of thread %d: %s", both write lines of the form "INFO [date time.ms] thread:
// message", and both queues hold 8192 records. Nothing is dropped: spdlog's asynchronous logger blocks where
// its queue is full; ours never blocks, so the harness looks for room before each record and gives way to the
// output's thread where there is none. The lines of the file are counted after each run.
//
//   log: one thread, against spdlog's asynchronous logger
//   log: one thread, against spdlog's synchronous logger
//   log: four threads, against spdlog's synchronous logger

namespace {

constexpr int kRecords = 400'000;
constexpr std::uint32_t kQueue = 8192;
constexpr const char* kText = "the quick brown fox jumps over the lazy dog";
constexpr const char* kPeerPattern = "%l [%m/%d/%Y %H:%M:%S.%e] %t: %v";

std::string filePath(const char* szSide) {
  return (std::filesystem::temp_directory_path() /
          ("qm_bench_log_" + std::to_string(getpid()) + "_" + szSide + ".log"))
      .string();
}

/// Ends the program unless the file holds every line.
void requireLines(const std::string& sPath) {
  std::ifstream file(sPath, std::ios::binary);
  int iLines = 0;
  for (std::string sLine; std::getline(file, sLine);) {
    ++iLines;
  }
  if (iLines != kRecords) {
    std::fprintf(stderr, "%s holds %d lines instead of %d\n", sPath.c_str(), iLines, kRecords);
    std::exit(1);
  }
}

/// Runs `produce(thread, record)` for all records, spread over threads.
template <typename Produce>
void onThreads(int iThreads, Produce produce) {
  const auto work = [&](int iThread) {
    for (int i = 0; i < kRecords / iThreads; ++i) {
      produce(iThread, i);
    }
  };
  if (iThreads == 1) {
    work(0);
    return;
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < iThreads; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

double ours(int iThreads) {
  const std::string sPath = filePath("ours");
  std::filesystem::remove(sPath);
  auto pOwned = std::make_unique<JLogFileOutput>("bench", sPath, 0, nullptr, false, kQueue);
  JLogFileOutput& output = *pOwned;
  JLog::addLogOutput(std::move(pOwned));
  // Each thread adds one record behind its look, so that room for all of them is room for each.
  const std::uint32_t uFull = kQueue - static_cast<std::uint32_t>(iThreads);
  const double time = qm_bench::seconds([&] {
    onThreads(iThreads, [&](int iThread, int iRecord) {
      while (output.getQueuedCount() > uFull) {
        std::this_thread::yield();
      }
      JLog::log(qm_err::kLogInfo, "record %d of thread %d: %s", iRecord, iThread, kText);
    });
    output.stop(-1, true);
  });
  JLog::deleteOutputs();
  requireLines(sPath);
  std::filesystem::remove(sPath);
  return time;
}

double peerSync(int iThreads) {
  const std::string sPath = filePath("peer");
  std::filesystem::remove(sPath);
  double time = 0.0;
  {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(sPath);
    sink->set_pattern(kPeerPattern);
    spdlog::logger logger("bench", sink);
    time = qm_bench::seconds([&] {
      onThreads(iThreads, [&](int iThread, int iRecord) {
        logger.info("record {} of thread {}: {}", iRecord, iThread, kText);
      });
      logger.flush();
    });
  }
  requireLines(sPath);
  std::filesystem::remove(sPath);
  return time;
}

double peerAsync(int iThreads) {
  const std::string sPath = filePath("peer");
  std::filesystem::remove(sPath);
  auto pool = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(sPath);
  sink->set_pattern(kPeerPattern);
  auto pLogger =
      std::make_shared<spdlog::async_logger>("bench", sink, pool, spdlog::async_overflow_policy::block);
  const double time = qm_bench::seconds([&] {
    onThreads(iThreads, [&](int iThread, int iRecord) {
      pLogger->info("record {} of thread {}: {}", iRecord, iThread, kText);
    });
    pLogger->flush();
    pool.reset();  // waits until its thread has worked off the queue
    pLogger.reset();
  });
  sink.reset();
  requireLines(sPath);
  std::filesystem::remove(sPath);
  return time;
}

}  // namespace

int main() {
  JLog::init(0);  // no outputs but the ones made here
  qm_bench::compare(
      {"log: one thread", "spdlog async, block", 1.3}, [] { return ours(1); }, [] { return peerAsync(1); });
  qm_bench::compare(
      {"log: one thread", "spdlog sync", 0.9}, [] { return ours(1); }, [] { return peerSync(1); });
  qm_bench::compare(
      {"log: four threads", "spdlog sync", 0.9}, [] { return ours(4); }, [] { return peerSync(4); });
  return 0;
}
