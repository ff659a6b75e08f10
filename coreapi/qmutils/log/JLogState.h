#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/JLogMsg.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace qm_utils {

/// What the operations of `JLog` share; no other code includes this.
struct LogState {
  LogState();

  /// Makes one configuration at a time. Taken before `mutex`, never behind it.
  JMutex configuring;
  bool bInitialised = false;  ///< a configuration has begun; under `configuring`

  /// The first configuration is complete. Until then those who log wait for it, so that their records find
  /// the outputs.
  std::atomic<bool> bReady{false};

  /// Over all that follows, and held while a record is passed to the outputs.
  JMutex mutex;

  std::uint32_t uFlags = JLog::kNoChange;  ///< of the last configuration
  std::string sKeyPath = JLog::kDefaultKeyPath;
  RegistryRoot root = RegistryRoot::kLocalMachine;

  /// Shared with those who stop them meanwhile without the mutex.
  std::vector<std::shared_ptr<JLog::GenericOutput>> outputs;
  std::vector<std::shared_ptr<JLog::GenericInput>> inputs;

  std::string sInstance = "System";
  int iRouting = 0;   ///< records that are being passed on; more than one is on this thread's stack
  JLog::Msg scratch;  ///< the record that is being made, kept for the memory of its strings
};

/// The one state of the process. It is never destroyed.
LogState& logState();

/// Keeps back what the calling thread logs, at most `kMaxRecords` of it, and passes it on at its end: while a
/// thread makes the outputs of a configuration, there are none that could tell what goes wrong with them.
class KeptBackRecords {
 public:
  static constexpr std::size_t kMaxRecords = 1000;

  KeptBackRecords() noexcept;
  ~KeptBackRecords();
  KeptBackRecords(const KeptBackRecords&) = delete;
  KeptBackRecords& operator=(const KeptBackRecords&) = delete;

  /// Takes a record if the calling thread's are kept back. False when they aren't.
  static bool take(const JLog::Msg& record);

 private:
  KeptBackRecords* m_pOuter;  ///< of the same thread; it takes what this one kept
  std::vector<JLog::Msg> m_records;
};

/// A copy of the list of outputs.
std::vector<std::shared_ptr<JLog::GenericOutput>> logOutputs();

}  // namespace qm_utils
