#include <array>
#include <atomic>
#include <cerrno>
#include <gmock/gmock.h>

#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jrwmutex.h"
#include "tests/coreapi/qmutils/thread/threadhelp.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::Crew;
using qm_test::LogCapture;
using qm_test::systemFailureOf;
using qm_test::Task;
using qm_test::ThreadFault;
using qm_test::untilAsleep;
using testing::ElementsAre;

TEST(Mutex, IsRecursiveAndKeepsOthersOut) {
  JMutex mutex;
  const JAutoLock outer(mutex);
  {
    const JAutoLock inner(mutex);
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
  }
  Crew({[&] { EXPECT_FALSE(mutex.tryLock()); }}).stop();
}

TEST(RWMutex, QueuedWriterGoesBeforeNewReadersButNotBeforeARecursiveOne) {
  JRWMutex mutex;
  JMutex orderMutex;
  std::vector<std::string> order;
  const auto note = [&](const char* szWho) {
    const JAutoLock lock(orderMutex);
    order.emplace_back(szWho);
  };
  mutex.lockRead();
  Crew({[&] { const JAutoReadLock shared(mutex); }}).stop();
  Task writer([&] {
    const JAutoWriteLock lock(mutex);
    note("writer");
  });
  writer.start();
  untilAsleep(writer);
  Task reader([&] {
    const JAutoReadLock lock(mutex);
    note("new reader");
  });
  reader.start();
  untilAsleep(reader);
  {
    const JAutoReadLock again(mutex);
    note("recursive reader");
  }
  mutex.unlockRead();
  writer.stop();
  reader.stop();
  EXPECT_THAT(order, ElementsAre("recursive reader", "writer", "new reader"));
}

TEST(RWMutex, WriterMayWriteAndReadInsideAndStaysAlone) {
  JRWMutex mutex;
  std::atomic<bool> bIn{false};
  Task other([&] {
    const JAutoReadLock lock(mutex);
    bIn = true;
  });
  {
    const JAutoWriteLock outer(mutex);
    {
      const JAutoWriteLock inner(mutex);
      const JAutoReadLock read(mutex);
      const JAutoReadLock readAgain(mutex);
    }
    other.start();
    untilAsleep(other);
    EXPECT_FALSE(bIn);
  }
  other.stop();
  EXPECT_TRUE(bIn);
}

TEST(RWMutex, MisuseIsToldAndLeavesTheLockUsable) {
  const LogCapture log;
  {
    JRWMutex mutex;
    mutex.unlockRead();
    EXPECT_TRUE(log.has(11, "ASSERTION FAILED (recursionsReader != 0)"));
    mutex.unlockWrite();
    EXPECT_TRUE(log.has(11, "ASSERTION FAILED (m_pWriterId==(void*)JThread::getCurrentThreadId())"));
    {
      const JAutoReadLock lock(mutex);
      EXPECT_EQ(systemFailureOf([&] { mutex.lockWrite(); }),
                "lockWrite is not allowed if lockRead has been called by the current thread");
      EXPECT_TRUE(log.has(11, "ASSERTION FAILED (recursionsReader==0)"));
    }
    mutex.lockWrite();
    mutex.lockRead();
    mutex.unlockWrite();
    EXPECT_TRUE(log.has(11, "ASSERTION FAILED ((unsigned)m_oTlsReaders.getValue()==0)"));
    mutex.unlockRead();
    Crew({[&] { const JAutoWriteLock lock(mutex); }}).stop();
    mutex.lockWrite();
  }
  EXPECT_TRUE(log.has(11,
                      "ASSERTION FAILED (m_numReaders==0 && m_numWriters==0 && m_recursionsWriter==0 && "
                      "m_pWriterId==(void*)-1)"));
}

TEST(RWMutex, FailedWaitsChangeNothing) {
  JRWMutex mutex;
  const std::pair<std::uint64_t, std::function<void()>> rows[] = {
      {1, [&] { mutex.lockRead(); }}, {2, [&] { mutex.lockRead(); }}, {1, [&] { mutex.lockWrite(); }}};
  for (const auto& [nth, lock] : rows) {
    const ThreadFault fault(nth, EMFILE);
    EXPECT_EQ(systemFailureOf(lock), "WaitForSingleObject: 24");
  }
  const LogCapture log;
  Crew({[&] { const JAutoReadLock lock(mutex); }}).stop();
  Crew({[&] { const JAutoWriteLock lock(mutex); }}).stop();
}

/// Readers see two numbers that writers always leave equal; the writers count themselves.
void load(JRWMutex& mutex) {
  constexpr int kRounds = 2000;
  std::array<int, 2> values{};
  std::atomic<int> mismatches{0};
  const auto read = [&] {
    for (int i = 0; i < kRounds; ++i) {
      const JAutoReadLock lock(mutex);
      const JAutoReadLock again(mutex);
      mismatches += values[0] != values[1] ? 1 : 0;
    }
  };
  const auto write = [&] {
    for (int i = 0; i < kRounds; ++i) {
      const JAutoWriteLock lock(mutex);
      ++values[0];
      const JAutoReadLock inside(mutex);
      ++values[1];
    }
  };
  Crew({read, write, read, write, read}).stop();
  EXPECT_EQ(mismatches, 0);
  EXPECT_THAT(values, ElementsAre(2 * kRounds, 2 * kRounds));
}

TEST(RWMutex, KeepsReadersAndWritersApartUnderLoad) {
  JRWMutex mutex;
  load(mutex);
}

TEST(RWMutex, WithoutASlotIsAPlainExclusiveLock) {
  const LogCapture log;
  const auto pMutex = [] {
    const ThreadFault fault(1, EAGAIN);
    return std::make_unique<JRWMutex>();
  }();
  EXPECT_TRUE(log.has(9, "Maximum TLS indexes reached!"));
  load(*pMutex);
  std::atomic<bool> bIn{false};
  Task reader([&] {
    const JAutoReadLock lock(*pMutex);
    bIn = true;
  });
  pMutex->lockRead();
  reader.start();
  untilAsleep(reader);
  EXPECT_FALSE(bIn);
  pMutex->unlockRead();
}

}  // namespace
