#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/JLogOutput.h"

/// Writes lines to the end of a file or to a standard stream. The file is opened with the first line, and
/// opened again with the next one after a failure; the line that met the failure is lost.
///
/// A name "&N" stands for the open descriptor N of the process, of which the output makes a duplicate: "&2"
/// is the standard error stream. An empty name means "&2".
///
/// Each line ends in one line feed, and in no other white space.
class JLogFileOutput : public JLogFormattedOutput {
 public:
  JLogFileOutput(std::string sName, std::string sFilename, std::uint32_t uMask = 0,
                 const char* szFormat = nullptr, bool bOneLine = false,
                 std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// From a key of the configuration, whose value `Filename` holds the name.
  JLogFileOutput(std::string sName, const qm_utils::IRegistryReadAccess& key, bool bOneLine = false,
                 std::uint32_t uQueueCapacity = JLog::kQueueCapacity, int iPriority = 0, bool bStart = true);

  /// Gives up what the queue still holds; `stop` comes first for those who want it written.
  ~JLogFileOutput() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;

  /// Writes the lines of as many records as fill one block with one call. A derived class with a `writeText`
  /// of its own lets this one write record by record.
  std::size_t writeRecords(std::span<const JLog::Msg> records) override;

  /// Opens the file, or duplicates the descriptor. Returns a descriptor that is the output's from then on, or
  /// a negative number.
  virtual int open();

 private:
  bool ensureOpen();
  std::size_t writeBlock();
  void close();

  const std::string m_sFilename;
  int m_iDescriptor;
  std::string m_sBlock;             ///< finished lines on their way out
  std::vector<std::size_t> m_ends;  ///< where each of them ends
};
