// Queue, locks and waits against their peers; all for the record.
//
//   queue, burst      one poster, then four, put 200,000 messages into a queue that holds them all, while its
//                     thread handles them; until the last one is handled. Peer: oneTBB's bounded queue with a
//                     thread that pops
//   queue, ping-pong  20,000 messages, each posted when the one before was handled. Peer: the same
//   rwmutex           read locks by one thread and by four, and one write lock in 20. Peer: std::shared_mutex
//   wait, ready       a wait for any of three objects of which one is signalled already. Peer: three flags
//   under
//                     a std::mutex
//   wait, ping-pong   two threads that wake each other, each asleep on three objects. Peer: the same three
//   flags
//                     with a std::condition_variable
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <tbb/concurrent_queue.h>
#include <thread>
#include <tuple>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/thread/jrwmutex.h"
#include "coreapi/qmutils/thread/jthreadedqueue.h"

namespace {

struct Message {
  std::uint64_t ullNumber;
  char payload[56];
};

constexpr int kBurst = 200'000;
constexpr int kTrips = 20'000;

/// Seconds until so many threads have all done their share of the work.
double together(int iThreads, const std::function<void(int)>& work) {
  return qm_bench::seconds([&] {
    std::vector<std::thread> threads;
    for (int i = 0; i < iThreads; ++i) {
      threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });
}

class OurQueue : public JThreadedQueue<Message> {
 public:
  explicit OurQueue(bool bTellEach) : m_bTellEach(bTellEach) { start(0, kBurst); }
  ~OurQueue() override { stop(false); }
  void process(Message message) override {
    qm_bench::keep(message);
    if (m_bTellEach || ++m_handled == kBurst) {
      handled.set();
    }
  }
  JFlag handled{false};

 private:
  const bool m_bTellEach;
  int m_handled = 0;
};

class PeerQueue {
 public:
  explicit PeerQueue(bool bTellEach) : m_bTellEach(bTellEach) { m_queue.set_capacity(kBurst); }
  ~PeerQueue() {
    post({kEnd, {}});
    m_thread.join();
  }
  void post(const Message& message) { m_queue.push(message); }
  JFlag handled{false};

 private:
  static constexpr std::uint64_t kEnd = ~std::uint64_t{0};

  void loop() {
    Message message;
    int count = 0;
    for (m_queue.pop(message); message.ullNumber != kEnd; m_queue.pop(message)) {
      qm_bench::keep(message);
      if (m_bTellEach || ++count == kBurst) {
        handled.set();
      }
    }
  }

  const bool m_bTellEach;
  tbb::concurrent_bounded_queue<Message> m_queue;
  std::thread m_thread{[this] { loop(); }};
};

template <class Queue>
double burst(int iPosters) {
  Queue queue(false);
  return qm_bench::seconds([&] {
    together(iPosters, [&](int) {
      for (int i = 0; i < kBurst / iPosters; ++i) {
        queue.post({static_cast<std::uint64_t>(i), {}});
      }
    });
    queue.handled.wait();
  });
}

template <class Queue>
double queuePingPong() {
  Queue queue(true);
  return qm_bench::seconds([&] {
    for (int i = 0; i < kTrips; ++i) {
      queue.post({static_cast<std::uint64_t>(i), {}});
      queue.handled.wait();
    }
  });
}

struct OurLock {
  void lockRead() { mutex.lockRead(); }
  void unlockRead() { mutex.unlockRead(); }
  void lockWrite() { mutex.lockWrite(); }
  void unlockWrite() { mutex.unlockWrite(); }
  JRWMutex mutex;
};

struct PeerLock {
  void lockRead() { mutex.lock_shared(); }
  void unlockRead() { mutex.unlock_shared(); }
  void lockWrite() { mutex.lock(); }
  void unlockWrite() { mutex.unlock(); }
  std::shared_mutex mutex;
};

/// 400,000 locks in all; every `iWriteEach`-th is a write lock, none when that is 0.
template <class Lock>
double locking(int iThreads, int iWriteEach) {
  Lock lock;
  int value = 0;
  return together(iThreads, [&](int) {
    for (int i = 1; i <= 400'000 / iThreads; ++i) {
      if (iWriteEach != 0 && i % iWriteEach == 0) {
        lock.lockWrite();
        ++value;
        lock.unlockWrite();
      } else {
        lock.lockRead();
        qm_bench::keep(value);
        lock.unlockRead();
      }
    }
  });
}

/// Three auto-reset flags to wait on at once.
struct OurFlags {
  void set(std::size_t index) { (index == 2 ? third : index == 1 ? second : first).set(); }
  std::size_t wait() { return any.wait(); }
  JFlag first{false};
  JFlag second{false};
  JFlag third{false};
  JWaitForMultipleObjects any{first, second, third};
};

struct PeerFlags {
  void set(std::size_t index) {
    {
      const std::lock_guard lock(mutex);
      flags[index] = true;
    }
    changed.notify_one();
  }
  std::size_t wait() {
    std::unique_lock lock(mutex);
    for (;;) {
      for (std::size_t i = 0; i < 3; ++i) {
        if (flags[i]) {
          flags[i] = false;
          return i;
        }
      }
      changed.wait(lock);
    }
  }
  std::mutex mutex;
  std::condition_variable changed;
  bool flags[3] = {};
};

template <class Flags>
double readyWait() {
  Flags flags;
  return qm_bench::seconds([&] {
    for (int i = 0; i < 1'000'000; ++i) {
      flags.set(2);
      qm_bench::keep(flags.wait());
    }
  });
}

template <class Flags>
double waitPingPong() {
  Flags there;
  Flags back;
  std::thread echo([&] {
    for (int i = 0; i < kTrips; ++i) {
      back.set(there.wait());
    }
  });
  const double result = qm_bench::seconds([&] {
    for (int i = 0; i < kTrips; ++i) {
      there.set(static_cast<std::size_t>(i) % 3);
      back.wait();
    }
  });
  echo.join();
  return result;
}

}  // namespace

int main() {
  const char* szTbb = "oneTBB concurrent_bounded_queue";
  for (const int iPosters : {1, 4}) {
    qm_bench::compare(
        {"queue, burst of 200,000, posters: " + std::to_string(iPosters), szTbb},
        [=] { return burst<OurQueue>(iPosters); }, [=] { return burst<PeerQueue>(iPosters); });
  }
  qm_bench::compare({"queue, ping-pong", szTbb}, queuePingPong<OurQueue>, queuePingPong<PeerQueue>);
  for (const auto& [szName, iThreads, iWriteEach] : {std::tuple{"rwmutex, reads, 1 thread", 1, 0},
                                                     {"rwmutex, reads, 4 threads", 4, 0},
                                                     {"rwmutex, 1 write in 20, 4 threads", 4, 20}}) {
    qm_bench::compare(
        {szName, "std::shared_mutex"}, [=] { return locking<OurLock>(iThreads, iWriteEach); },
        [=] { return locking<PeerLock>(iThreads, iWriteEach); });
  }
  const char* szFlags = "std::mutex and flags";
  qm_bench::compare({"wait for any of 3, ready", szFlags}, readyWait<OurFlags>, readyWait<PeerFlags>);
  qm_bench::compare({"wait for any of 3, ping-pong", szFlags}, waitPingPong<OurFlags>,
                    waitPingPong<PeerFlags>);
}
