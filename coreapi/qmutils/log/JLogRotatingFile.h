#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "coreapi/qmutils/log/JLogOutput.h"

class JFileSocket;

/// Writes lines to files of limited size in a directory, and deletes the oldest ones when all together have
/// grown too large. A file is named PREFIX_YYYY_MM_DD_HH_MM_SS_UUUUUU.log by the local time of its first line
/// (`qm_utils::logFileSuffix`), with "QM_Log" in the place of an empty prefix. The directory is made when it
/// isn't there.
///
/// While no file can be written lines are lost. When one can be again, its next line tells for how long that
/// was so and why it began; a disk that is full is tried with each line, anything else `kRetryDelay` later.
class JLogRotatingFile : public JLogFormattedOutput {
 public:
  static constexpr std::uint64_t kDefaultMaxDirSize = 10'485'760;  ///< bytes
  static constexpr std::uint64_t kDefaultMaxFileSize = 65'536;     ///< bytes
  static constexpr std::uint64_t kLowestMaxFileSize = 1024;        ///< bytes
  static constexpr int kRetryDelay = 10'000;                       ///< milliseconds

  /// `uMaxDirSize` is the most bytes that all files have together once the newest one is full; with 0 no file
  /// is ever opened, and so with an empty directory. `uMaxFileSize` is the size from which on a file is left
  /// for a new one, 1024 at least; with 0 that doesn't happen.
  JLogRotatingFile(std::string sName, std::string sDirectory, const std::string& sPrefix,
                   std::uint64_t uMaxDirSize = kDefaultMaxDirSize,
                   std::uint64_t uMaxFileSize = kDefaultMaxFileSize, std::uint32_t uMask = 0,
                   const char* szFormat = nullptr, std::uint32_t uQueueCapacity = JLog::kQueueCapacity,
                   int iPriority = 0, bool bStart = true);

  /// From a key of the configuration with the values `LogDirectory`, `MaxLogDirSize` in units of 0x100000
  /// bytes and `MaxLogFileSize` in units of 1024 bytes. The prefix is the name of the running program.
  JLogRotatingFile(std::string sName, const qm_utils::IRegistryReadAccess& key,
                   std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0,
                   bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it written.
  ~JLogRotatingFile() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;

  /// Puts another clock in the place of the system's. Before `start`.
  void setClock(std::function<JTime()> clock) { m_clock = std::move(clock); }

 private:
  bool isFull() const noexcept;
  bool isRetryDue() const;
  void rotate();
  bool ensureDirectory();
  void append(const std::string& sText);
  std::string lossText() const;
  void recordFailure(const std::string& sText);

  const std::string m_sDirectory;
  const std::string m_sBaseName;
  const std::uint64_t m_uMaxDirSize;
  const std::uint64_t m_uMaxFileSize;
  std::function<JTime()> m_clock = JTime::now;

  std::unique_ptr<JFileSocket> m_pFile;
  std::uint64_t m_uSize = 0;  ///< bytes written to the file
  JTime m_lastFailure;        ///< 0 before the first one
  bool m_bLoss = false;       ///< lines were lost since the last one that was written
  JTime m_firstFailure;       ///< when that began
  std::string m_sFailure;     ///< why
};
