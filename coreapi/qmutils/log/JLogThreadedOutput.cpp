#include "coreapi/qmutils/log/JLogThreadedOutput.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

#include "coreapi/platform/brokenpipe.h"
#include "coreapi/platform/clock.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"

namespace {

/// How long the thread looks for a new record before it sleeps, in nanoseconds.
constexpr std::int64_t kSpinTime = 50'000;

/// A time of the steady clock that doesn't come.
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::int64_t flushEnd(int iTimeout) noexcept {
  return iTimeout < 0 ? kNever : qm_platform::steadyClockNanoseconds() + std::int64_t{iTimeout} * 1'000'000;
}

/// Runs a step that may throw what an output throws. False when it did.
template <typename Step>
bool succeeds(Step step) {
  try {
    return step();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);  // the caller counts the record as lost, or tries it again
    return false;
  } catch (const std::exception&) {
    return false;
  }
}

void copyIfChanged(std::string& sTarget, const std::string& sSource) {
  if (sTarget != sSource) {
    sTarget = sSource;
  }
}

/// Copies a record over an older one. What is mostly the same in all records isn't written again: memory that
/// is only read needn't travel between the processors of the two threads.
void copyInto(JLog::Msg& target, const JLog::Msg& source) {
  target.uLevel = source.uLevel;
  target.sMessage = source.sMessage;
  target.time = source.time;
  target.uProcessId = source.uProcessId;
  target.uThreadId = source.uThreadId;
  copyIfChanged(target.sInstance, source.sInstance);
  copyIfChanged(target.sUnit, source.sUnit);
  copyIfChanged(target.sHost, source.sHost);
  copyIfChanged(target.sFile, source.sFile);
  if (target.uLine != source.uLine) {
    target.uLine = source.uLine;
  }
  copyIfChanged(target.sClass, source.sClass);
}

}  // namespace

JLogThreadedOutput::JLogThreadedOutput(std::string sName, std::string sThreadName,
                                       std::uint32_t uQueueCapacity, int iPriority)
    : GenericOutput(std::move(sName)),
      JThread(std::move(sThreadName)),
      m_uCapacity(uQueueCapacity),
      m_iPriority(iPriority) {}

JLogThreadedOutput::~JLogThreadedOutput() {
  JASSERT(!m_bStarted);
}

// ---------------------------------------------------------------------------------------------------------
// The side of those who log.

void JLogThreadedOutput::write(const JLog::Msg& record) {
  const JAutoLock lock(m_mutex);
  if ((m_uLost != 0 && !reportLost()) || !pass(record)) {
    ++m_uLost;
  }
}

bool JLogThreadedOutput::reportLost() {
  return succeeds([this] {
    JLog::Msg record;
    record.uLevel = qm_err::kLogWarning;
    record.sMessage = qm_utils::format("### LOG OVERFLOW, LOST %u MESSAGES ###", m_uLost);
    record.time = JTime::now();
    record.uProcessId = qm_platform::processId();
    record.uThreadId = qm_platform::threadId();
    if (!pass(record)) {
      return false;
    }
    m_uLost = 0;
    return true;
  });
}

bool JLogThreadedOutput::pass(const JLog::Msg& record) {
  return succeeds([&] {
    if (m_bQueueing) {
      return enqueue(record);
    }
    const qm_platform::BrokenPipeGuard guard;
    return writeRecord(record);
  });
}

bool JLogThreadedOutput::enqueue(const JLog::Msg& record) {
  const std::uint64_t uTail = m_uTail.load(std::memory_order_relaxed);
  if (!hasRoom(uTail)) {
    return false;
  }
  copyInto(m_ring[m_uTailSlot], record);
  m_uTailSlot = m_uTailSlot + 1 == m_ring.size() ? 0 : m_uTailSlot + 1;
  // Either this thread sees that the other one sleeps, or that one sees the record before it does.
  m_uTail.store(uTail + 1, std::memory_order_seq_cst);
  if (m_bAsleep.load(std::memory_order_seq_cst) && m_bAsleep.exchange(false)) {
    m_queued.set();
  }
  return true;
}

bool JLogThreadedOutput::hasRoom(std::uint64_t uTail) noexcept {
  if (uTail - m_uTakenSeen >= m_uCapacity) {
    m_uTakenSeen = m_uTaken.load(std::memory_order_acquire);
  }
  return uTail - m_uTakenSeen < m_uCapacity;
}

std::uint32_t JLogThreadedOutput::getQueuedCount() const noexcept {
  const std::uint64_t uTaken = m_uTaken.load();
  return static_cast<std::uint32_t>(m_uTail.load() - uTaken);
}

std::uint32_t JLogThreadedOutput::getLostCount() {
  const JAutoLock lock(m_mutex);
  return m_uLost;
}

// ---------------------------------------------------------------------------------------------------------
// Start and stop.

void JLogThreadedOutput::start() {
  {
    const JAutoLock lock(m_mutex);
    if (m_bStarted) {
      return;
    }
    m_ring.resize(std::size_t{m_uCapacity} + 1);
    m_uHead = m_uTail;
    m_uHeadSlot = m_uTailSlot;
    m_uTaken = m_uHead;
    m_bCurrentFailed = false;
    m_iFlushEnd = kNever;
    m_uFlushLost = 0;
    m_stop.reset();
    m_bStarted = true;
    m_bQueueing = true;
  }
  try {
    // Without the lock: a thread that starts says so in the log, which may lead back to this output.
    JThread::start(m_iPriority);
  } catch (JError*) {
    const JAutoLock lock(m_mutex);
    m_uLost += getQueuedCount();
    m_uTaken = m_uTail.load();
    m_bQueueing = false;
    m_bStarted = false;
    throw;
  }
}

bool JLogThreadedOutput::stop(int iTimeout, bool bWait) {
  {
    const JAutoLock lock(m_mutex);
    if (!m_bStarted) {
      return true;
    }
    m_iFlushEnd = flushEnd(iTimeout);
    m_stop.set();
  }
  if (!awaitEnd(bWait)) {
    return false;
  }
  std::uint32_t uLost = 0;
  {
    const JAutoLock lock(m_mutex);
    JThread::stop();
    m_bStarted = false;
    uLost = std::exchange(m_uLost, 0);
  }
  if (uLost != 0) {
    JLog::log(qm_err::kLogWarning, "### %s LOG OVERFLOW, LOST %u MESSAGES ###", getName().c_str(), uLost);
  }
  return true;
}

/// Waits for the thread's end, or looks once whether it has come.
bool JLogThreadedOutput::awaitEnd(bool bWait) {
  try {
    if (!bWait) {
      return JThread::wait(0);
    }
    JThread::wait();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);  // another stop has cleared the thread up in the meantime
  }
  return true;
}

// ---------------------------------------------------------------------------------------------------------
// The thread.

void JLogThreadedOutput::run() {
  const qm_platform::BrokenPipeGuard guard;
  try {
    writeUntilStop();
  } catch (JError* pError) {
    // The wait itself has failed. What the queue holds is written below, what comes later by those who log.
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  flush();
  onThreadStop();
}

void JLogThreadedOutput::writeUntilStop() {
  const JWaitForMultipleObjects sleep(m_stop, m_retry, m_queued);
  bool bRecent = false;
  for (Event event = nextEvent(sleep, bRecent); event != Event::kStop; event = nextEvent(sleep, bRecent)) {
    bRecent = event == Event::kRecord;
    if (bRecent && m_bCurrentFailed) {
      ++m_uGivenWay;
      release(1);
    }
    writeCurrent();
  }
}

/// What to do next: a stop goes before a retry, and that before a new record.
JLogThreadedOutput::Event JLogThreadedOutput::nextEvent(const JWaitForMultipleObjects& sleep, bool bRecent) {
  for (;;) {
    if (m_stop.wait(0)) {
      return Event::kStop;
    }
    if (m_bCurrentFailed && m_retry.wait(0)) {
      return Event::kRetry;
    }
    if (hasRecord() || (bRecent && spin())) {
      return Event::kRecord;
    }
    bRecent = false;
    m_bAsleep.store(true, std::memory_order_seq_cst);
    if (hasRecord()) {
      m_bAsleep = false;
      continue;
    }
    const std::size_t uIndex = sleep.wait();
    m_bAsleep = false;
    if (uIndex == 0) {
      return Event::kStop;
    }
    if (uIndex == 1 && m_bCurrentFailed) {
      return Event::kRetry;
    }
  }
}

/// Whether a record has come that wasn't tried yet.
bool JLogThreadedOutput::hasRecord() const noexcept {
  return m_uTail.load(std::memory_order_seq_cst) != m_uHead + (m_bCurrentFailed ? 1 : 0);
}

/// Looks for a record for a short time, which on a busy machine is over as soon as another thread had its
/// turn.
bool JLogThreadedOutput::spin() const noexcept {
  const std::int64_t iEnd = qm_platform::steadyClockNanoseconds() + kSpinTime;
  while (!hasRecord()) {
    if (qm_platform::steadyClockNanoseconds() >= iEnd) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

/// The records that aren't done, as far as they stand in one piece.
std::span<const JLog::Msg> JLogThreadedOutput::waiting() const noexcept {
  const std::size_t uCount = m_uTail.load(std::memory_order_acquire) - m_uHead;
  return std::span<const JLog::Msg>(m_ring).subspan(m_uHeadSlot,
                                                    std::min(uCount, m_ring.size() - m_uHeadSlot));
}

/// Offers the output what waits. Returns how many records are done.
std::size_t JLogThreadedOutput::tryWrite() {
  m_uTaken.store(m_uHead + 1, std::memory_order_release);
  std::size_t uWritten = 0;
  succeeds([&] {
    const std::span<const JLog::Msg> records = waiting();
    uWritten = std::min(writeRecords(records), records.size());
    return true;
  });
  return uWritten;
}

/// Lets go of records at the head, which stand in one piece: their slots are free for new ones.
void JLogThreadedOutput::release(std::size_t uCount) noexcept {
  m_uHead += uCount;
  m_uHeadSlot += uCount;
  if (m_uHeadSlot == m_ring.size()) {
    m_uHeadSlot = 0;
  }
  m_uTaken.store(m_uHead, std::memory_order_release);
  m_bCurrentFailed = false;
}

void JLogThreadedOutput::writeCurrent() {
  const std::size_t uWritten = tryWrite();
  if (uWritten == 0) {
    m_bCurrentFailed = true;
    m_retry.start(JTime(std::chrono::milliseconds(m_iRetryDelay)));
    return;
  }
  release(uWritten);
  if (m_uGivenWay != 0) {
    const JAutoLock lock(m_mutex);
    m_uLost += std::exchange(m_uGivenWay, 0);
  }
}

/// Writes what is left until the time is over or a write fails, gives up the rest, and ends the queue.
void JLogThreadedOutput::flush() {
  bool bFailed = false;
  while (!endQueue()) {
    const bool bTry = !bFailed && qm_platform::steadyClockNanoseconds() < m_iFlushEnd;
    const std::size_t uWritten = bTry ? tryWrite() : 0;
    bFailed = bFailed || uWritten == 0;
    if (uWritten == 0) {
      ++m_uFlushLost;
    }
    release(std::max<std::size_t>(uWritten, 1));
  }
}

/// Lets records go past the queue from now on, unless there are still some in it.
bool JLogThreadedOutput::endQueue() {
  const JAutoLock lock(m_mutex);
  if (m_uHead != m_uTail.load(std::memory_order_relaxed)) {
    return false;
  }
  m_uLost += std::exchange(m_uGivenWay, 0);
  m_bQueueing = false;
  return true;
}

std::size_t JLogThreadedOutput::writeRecords(std::span<const JLog::Msg> records) {
  return writeRecord(records.front()) ? 1 : 0;
}
