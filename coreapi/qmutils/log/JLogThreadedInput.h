#pragma once

#include <string>

#include "coreapi/qmutils/log/JLogMsg.h"
#include "coreapi/qmutils/thread/jthread.h"

/// An input with a thread of its own that reads records and forwards them to the log. The record by which a
/// slave process orders it, of level 0 with the message "RELOAD_CONFIG", makes the log read its configuration
/// again, from the file on, instead.
///
/// Threads: the owner starts, stops and destroys, and a derived class stops in its destructor (`stop(0,
/// true)`), because its `readRecord` is gone after that.
class JLogThreadedInput : public JLog::GenericInput, public JThread {
 public:
  static constexpr int kRetryDelay = 5000;  ///< milliseconds

  /// The message that orders the configuration to be read again.
  static constexpr const char* kReloadOrder = "RELOAD_CONFIG";

  JLogThreadedInput(std::string sName, std::string sThreadName);
  ~JLogThreadedInput() override;

  using JLog::GenericInput::getName;

  void forward(const JLog::Msg& record) override;

  /// Starts the thread; nothing happens when it runs. Throws what `JThread::start` throws.
  virtual void start();

  /// Tells the thread to end when its `readRecord` has returned, and with `bWait` waits for that. The
  /// time-out is not used: an input holds nothing that would have to be written. Returns whether the thread
  /// has ended; one that never ran counts as ended.
  virtual bool stop(int iTimeout, bool bWait);

  /// Reads one record, on the input's thread. A result above 0: there is one; 0: none yet, ask again; below
  /// 0, or an error: a failure, ask again after the retry delay. Must return from time to time even if
  /// nothing comes, because only then the thread can be stopped.
  virtual int readRecord(JLog::Msg& record) = 0;

  /// Comes on the input's thread as the last thing.
  virtual void onThreadStop() {}

  /// Milliseconds between a failure and the next try. Set before `start`.
  void setRetryDelay(int iMilliseconds) noexcept { m_iRetryDelay = iMilliseconds; }

 private:
  void run() override;
  static void reload();
  int tryRead(JLog::Msg& record);

  int m_iRetryDelay = kRetryDelay;
  JFlag m_stop{false};
};
