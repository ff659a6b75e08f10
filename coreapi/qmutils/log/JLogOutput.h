#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "coreapi/qmutils/log/JLogFormat.h"
#include "coreapi/qmutils/log/JLogThreadedOutput.h"
#include "coreapi/qmutils/registry/jregistry.h"

/// An output that writes each record as one text line. It has a mask that says which levels below 13 it
/// wants, and a pattern (`JLogFormat`).
///
/// The values that its key of the configuration may hold, each of which changes nothing when it is absent:
///
///     WarnLevel                    DWORD    the whole mask, read first
///     EnableLevelFullDebug         boolean  bit 1          EnableLevelInfo       bit 8
///     EnableLevelActiveXCalls      boolean  bit 2          EnableLevelWarning    bit 9
///     EnableLevelDebug             boolean  bit 3          EnableLevelException  bit 10
///     EnableLevelTrace             boolean  bit 4          EnableLevelError      bit 11
///     EnableLevelTraceAction       boolean  bit 5          EnableLevelCritical   bit 12
///     EnableLevelTraceRunning      boolean  bit 6
///     EnableLevelTraceStepByStep   boolean  bit 7
///     Format                       string   the pattern
///
/// Mask and pattern are fixed at construction. Threads and lock order are those of `JLogThreadedOutput`.
class JLogFormattedOutput : public JLogThreadedOutput {
 public:
  /// INFO, WARNING, ERROR, CRITICAL. (The bits 13 to 19 stand in the stored default; no output reads them.)
  static constexpr std::uint32_t kDefaultMask = 0xFFB00;

  /// A mask of 0 and a null pattern stand for the defaults. With `bOneLine` every carriage return and line
  /// feed of a message becomes a blank.
  JLogFormattedOutput(std::string sName, std::string sThreadName, std::uint32_t uMask, const char* szFormat,
                      bool bOneLine, std::uint32_t uQueueCapacity, int iPriority);

  /// With mask and pattern from a key of the configuration. Throws what reading the key throws.
  JLogFormattedOutput(std::string sName, std::string sThreadName, const qm_utils::IRegistryReadAccess& key,
                      bool bOneLine, std::uint32_t uQueueCapacity, int iPriority);

  /// A record that the mask keeps out is done at once.
  void write(const JLog::Msg& record) override;

  /// As the mask says; of levels from 13 up, all.
  bool takes(std::uint32_t uLevel) const noexcept override;

  bool writeRecord(const JLog::Msg& record) override;

  /// Writes the finished line of a record. An error makes the record be tried again.
  virtual void writeText(const JLog::Msg& record, const std::string& sLine) = 0;

  std::uint32_t getMask() const noexcept { return m_uMask; }

 protected:
  /// Appends the finished line of a record to `sOut`.
  void appendLine(const JLog::Msg& record, std::string& sOut);

  /// Lets the next line print its time by the zone that holds then. Comes before each group of lines.
  void forgetTime() noexcept { m_format.forgetTime(); }

 private:
  std::uint32_t m_uMask;
  JLogFormat m_format;
  const bool m_bOneLine;
  std::string m_sMessage;  ///< the message without its line breaks, when there were any
  std::string m_sLine;     ///< kept for its memory
};

namespace qm_utils {

/// Cuts every line feed, carriage return, blank and tab off the end of a line, down to `uStart`, and appends
/// one line feed.
void endLogLine(std::string& sLine, std::size_t uStart = 0);

}  // namespace qm_utils
