#pragma once

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/registry/jregistry.h"

namespace qm_utils {
class ITraceableObject;
}

/// The process's log. Any thread hands it a message; it makes one record of it and passes that to every
/// output, each of which has a thread of its own behind a bounded queue. Inputs bring records from other
/// processes on the same way.
///
/// Logging needs no set-up: the first record reads the configuration. Nothing that logs ever fails or waits
/// for a file or a network by it, and a record that is made while the same thread passes one on is dropped,
/// so that an output that logs can't go round in a circle.
///
/// Its state is never destroyed, so that threads and destructors may log until the process has ended. When
/// the program ends by `exit` or by returning from `main`, the outputs are given one second to write what
/// they hold. `shutdown` does that at a time, and within a limit, of the host's choice.
///
/// Threads: everything from any thread, but the operations that stop outputs or inputs never from the thread
/// of one of them; they would wait for themselves. (`configure` may come from an input's thread as long as it
/// keeps that input.) Lock order: one configuration at a time, then the lock of the lists of outputs and
/// inputs, which is held while a record is passed on, then an output's own. The calls that wait for an output
/// or an input hold neither of the first two.
class JLog {
 public:
  struct Msg;

  /// Where records go. `getName` is what messages and the configuration call it.
  class GenericOutput {
   public:
    explicit GenericOutput(std::string sName) : m_sName(std::move(sName)) {}
    virtual ~GenericOutput() = default;
    GenericOutput(const GenericOutput&) = delete;
    GenericOutput& operator=(const GenericOutput&) = delete;

    /// Takes one record. Comes under the log's lock, from any thread, so it must not wait.
    virtual void write(const Msg& record) = 0;

    /// Whether records of a level are more than dropped here. Comes under the log's lock, as `write`.
    virtual bool takes(std::uint32_t /*uLevel*/) const noexcept { return true; }

    const std::string& getName() const noexcept { return m_sName; }

   private:
    std::string m_sName;
  };

  /// Where records come from, beside this process's own code.
  class GenericInput {
   public:
    explicit GenericInput(std::string sName) : m_sName(std::move(sName)) {}
    virtual ~GenericInput() = default;
    GenericInput(const GenericInput&) = delete;
    GenericInput& operator=(const GenericInput&) = delete;

    /// Passes a record on to all outputs, as it is. Never throws. Any thread.
    virtual void forward(const Msg& record);

    const std::string& getName() const noexcept { return m_sName; }

   private:
    std::string m_sName;
  };

  /// What `configure` sets up. Never renumber: hosts pass these numbers.
  enum Flags : std::uint32_t {
    kNoChange = 0x01,          ///< alone: the flags of the previous call, 0x0A when there was none
    kConsoleIfNoOther = 0x02,  ///< a console output if nothing else made an output
    kConsole = 0x04,           ///< a console output always
    kRegistry = 0x08,          ///< the outputs of the configuration key
    kSlave = 0x10,             ///< records go to the master, another process of this machine
    kMaster = 0x20,            ///< records of slaves are taken in
    kStandardError = 0x40,     ///< an output to the standard error stream
  };

  static constexpr const char* kDefaultKeyPath = "SOFTWARE\\Quelmarin\\Log";

  /// Records that a configured output's queue holds at most.
  static constexpr std::uint32_t kQueueCapacity = 200;

  /// Characters of a message; longer ones are cut.
  static constexpr std::size_t kMaxMessage = 2047;

  /// From this level up, records are chosen by the mask of the object that logs, not by the outputs.
  static constexpr std::uint32_t kFirstObjectLevel = 13;

  /// "INFO" for 8 and so on; "UNKNOWW" for a level that there isn't.
  static const char* getLevelName(std::uint32_t uLevel) noexcept;

  /// As `getLevelName`, with one short name for all debug levels and one for all trace levels.
  static const char* getShortLevelName(std::uint32_t uLevel) noexcept;

  /// Sets where the configuration is and reads it. The first record does this by itself, with the defaults
  /// of the arguments. Failures are logged, not thrown.
  static void init(std::uint32_t uFlags = kNoChange, const std::string& sKeyPath = kDefaultKeyPath,
                   qm_utils::RegistryRoot root = qm_utils::RegistryRoot::kLocalMachine);

  /// Ends all outputs, within a second for what they still hold, and makes those that the flags ask for. What
  /// other threads log meanwhile reaches the outputs that there are at that moment. Failures are logged, not
  /// thrown.
  static void configure(std::uint32_t uFlags);

  /// Logs a finished text from a site in the source. The file, the class and the object may be null; a class
  /// name loses its trailing " *". Drops the record when the level is 13 or more and the object has a mask
  /// without its bit. Never throws.
  static void log(std::uint32_t uLevel, const char* szText, const char* szFile, int iLine,
                  const char* szClass, const qm_utils::ITraceableObject* pObject) noexcept;

  /// Logs a printf-style text, without a site. Never throws.
  [[gnu::format(printf, 2, 3)]] static void log(std::uint32_t uLevel, const char* szFormat, ...) noexcept;

  /// Logs a printf-style text in the name of an object, which may be null, under the same condition as the
  /// first form. Never throws.
  [[gnu::format(printf, 3, 4)]] static void log(const qm_utils::ITraceableObject* pObject,
                                                std::uint32_t uLevel, const char* szFormat, ...) noexcept;
  [[gnu::format(printf, 3, 4)]] static void log(std::uint32_t uLevel,
                                                const qm_utils::ITraceableObject* pObject,
                                                const char* szFormat, ...) noexcept;

  /// The same for those who forward their own arguments.
  [[gnu::format(printf, 3, 0)]] static void logV(std::uint32_t uLevel,
                                                 const qm_utils::ITraceableObject* pObject,
                                                 const char* szFormat, va_list arguments) noexcept;

  /// Whether any output takes records of a level, for those who would log one for each of a million objects.
  static bool isTaken(std::uint32_t uLevel) noexcept;

  /// Sets the instance of records that come from no traceable object; "System" at first.
  static void setDefaultInstance(const std::string& sInstance);

  /// Adds an output behind the others. Throws `JTextError` for a null pointer. A host that adds outputs of
  /// its own calls `init` first: the configuration replaces all outputs.
  static void addLogOutput(std::unique_ptr<GenericOutput> pOutput);

  /// Adds an input. Throws `JTextError` for a null pointer.
  static void addLogInput(std::unique_ptr<GenericInput> pInput);

  /// Tells every output to write what it holds within a time, in milliseconds, and to end its thread; with
  /// `bWait` returns when all have ended. The outputs stay: what comes later is written on the thread that
  /// logs.
  static void stopOutputs(int iTimeout, bool bWait);

  /// Stops and deletes all outputs, or all inputs. What an output still holds is lost.
  static void deleteOutputs();
  static void deleteInputs();

  /// Ends the log: `stopOutputs` within a time in milliseconds, unless that is 0, then deletes all inputs and
  /// outputs. Records that come later go nowhere.
  static void shutdown(int iTimeout);

  /// In a slave process: tells the master to read its configuration again.
  static void reload();

  /// The value `LogDirectory` of each sub-key of the configuration whose type is "File" or "FILE".
  static std::vector<std::string> getLogDirectories();

 private:
  static void route(const Msg& record) noexcept;
};
