#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/JLogMsg.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"

/// An output with a thread and a bounded queue of its own: whoever logs leaves a copy of the record in the
/// queue and goes on. While the thread doesn't run, records are written on the caller's thread.
///
/// A record that finds the queue full is lost and counted; when there is room again, one record of level
/// WARNING tells the count ahead of the next one. A record that can't be written is tried again after the
/// retry delay, or gives way to the next one that comes before that, and then counts as lost too.
///
/// The thread takes from the queue whatever is there and offers it to `writeRecords` at one time, so that an
/// output can write many lines with one call; no record waits for others to come. Before it sleeps it looks
/// for new records for some microseconds: under load that saves those who log from having to wake it.
///
/// Threads: any may write; the owner starts, stops and destroys, and a derived class stops in its destructor
/// (`stop(0, true)`), because its `writeRecord` is gone after that. Stopping comes from another thread than
/// the output's own. Lock order: the output's lock is inside that of `JLog`; it is held while a record is
/// written on the caller's thread, and never while the output's thread writes.
class JLogThreadedOutput : public JLog::GenericOutput, public JThread {
 public:
  static constexpr int kRetryDelay = 5000;  ///< milliseconds

  /// `uQueueCapacity` is the number of records that wait at most, not counting the one that is being written.
  JLogThreadedOutput(std::string sName, std::string sThreadName, std::uint32_t uQueueCapacity, int iPriority);
  ~JLogThreadedOutput() override;

  using JLog::GenericOutput::getName;

  /// Leaves a copy of the record in the queue, or writes it when no thread runs. Never throws: what can't be
  /// passed counts as lost.
  void write(const JLog::Msg& record) override;

  /// Starts the thread; nothing happens when it runs. Throws what `JThread::start` throws.
  virtual void start();

  /// Tells the thread to write what the queue holds within a time, in milliseconds (-1: however long it
  /// takes), and to end. With `bWait` waits for that. Returns whether the thread has ended; one that never
  /// ran counts as ended. Tells lost records that were not reported yet in a record of their own.
  virtual bool stop(int iTimeout, bool bWait);

  /// Writes one record. False, or an error, means that it wasn't written and is to be tried again.
  virtual bool writeRecord(const JLog::Msg& record) = 0;

  /// Comes on the output's thread as the last thing.
  virtual void onThreadStop() {}

  /// Writes records from the front, at least one, and returns how many are done; 0 means that the first one
  /// wasn't written. As here, it may write one and leave the others for the next call, which comes at once.
  /// Comes on the output's thread only.
  virtual std::size_t writeRecords(std::span<const JLog::Msg> records);

  /// Milliseconds until a record that couldn't be written is tried again. Set before `start`.
  void setRetryDelay(int iMilliseconds) noexcept { m_iRetryDelay = iMilliseconds; }

  /// Records in the queue. Any thread; by the time it is read there may be others.
  std::uint32_t getQueuedCount() const noexcept;
  std::uint32_t getQueueCapacity() const noexcept { return m_uCapacity; }

  /// Records that were lost and have not been reported yet.
  std::uint32_t getLostCount();

  /// Records that the last stop had to give up.
  std::uint32_t getFlushLostCount() const noexcept { return m_uFlushLost.load(); }

 private:
  enum class Event { kStop, kRetry, kRecord };

  static constexpr std::size_t kCacheLine = 64;  ///< bytes

  void run() override;
  void writeUntilStop();
  bool pass(const JLog::Msg& record);
  bool enqueue(const JLog::Msg& record);
  bool hasRoom(std::uint64_t uTail) noexcept;
  bool reportLost();
  bool awaitEnd(bool bWait);

  Event nextEvent(const JWaitForMultipleObjects& sleep, bool bRecent);
  bool spin() const noexcept;
  bool hasRecord() const noexcept;
  std::span<const JLog::Msg> waiting() const noexcept;
  std::size_t tryWrite();
  void writeCurrent();
  void release(std::size_t uCount) noexcept;
  void flush();
  bool endQueue();

  const std::uint32_t m_uCapacity;
  const int m_iPriority;
  int m_iRetryDelay = kRetryDelay;

  JMutex m_mutex;  ///< over the fields down to the next comment, and over the writing end of the queue
  bool m_bStarted = false;   ///< a thread was started and not yet cleared up
  bool m_bQueueing = false;  ///< records go through the queue
  std::uint32_t m_uLost = 0;

  // The queue: a ring of the capacity and one more, the record that is being written. Positions only grow;
  // their remainder by the ring's size is the slot. Slots keep the memory of their strings. What one side
  // writes all the time stands apart from what the other side reads.
  std::vector<JLog::Msg> m_ring;
  std::size_t m_uTailSlot = 0;                                 ///< where the next record goes
  std::uint64_t m_uTakenSeen = 0;                              ///< `m_uTaken` when those who log last looked
  alignas(kCacheLine) std::atomic<std::uint64_t> m_uTail{0};   ///< behind the last record put in
  alignas(kCacheLine) std::atomic<std::uint64_t> m_uTaken{0};  ///< behind the last record that left the queue
  std::atomic<bool> m_bAsleep{false};  ///< the thread sleeps, or is about to, and wants to be woken
  JFlag m_queued{false};
  JFlag m_stop{false};

  // Of the thread alone, but for the atomic ones.
  JWaitableTimer m_retry{false};
  std::uint64_t m_uHead = 0;      ///< the first record that isn't done
  std::size_t m_uHeadSlot = 0;    ///< where it stands
  bool m_bCurrentFailed = false;  ///< the record at the head was tried and waits for its retry
  std::uint32_t m_uGivenWay = 0;  ///< failed records that gave way to newer ones since the last success
  std::atomic<std::int64_t> m_iFlushEnd{0};  ///< by the steady clock, nanoseconds
  std::atomic<std::uint32_t> m_uFlushLost{0};
};
