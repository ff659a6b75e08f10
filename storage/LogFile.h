#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "coreapi/qmutils/time/jtime.h"

/// The text file of one log: lines that end in "\n" or "\r\n", replaced as a whole.
///
/// A file that couldn't be read to its end isn't replaced: what stands in it behind that place would be lost.
/// One object belongs to one thread at a time.
class LogFile {
 public:
  /// Takes one line, without its end.
  using TakeLine = std::function<void(std::string_view sLine)>;

  /// What becomes of files that interrupted updates have left beside the file. Looking for them lists the
  /// directory, which who has just listed it may know better.
  enum class Leftovers {
    kRemove,
    kNone,  ///< there are none
  };

  const std::string& getName() const noexcept { return m_sName; }

  /// Reads the file of a name and hands on its lines; there are none when there is no such file. Throws what
  /// reading and `takeLine` throw.
  void read(const std::string& sName, const TakeLine& takeLine, Leftovers leftovers = Leftovers::kRemove);

  /// Replaces the file; does nothing as long as there is no name, or when the file was just read and holds
  /// exactly this. When it returns, the new file is on disk; when it throws, the old one still stands. Throws
  /// JTextError when the last reading didn't come to the end of the file.
  void replace(const std::string& sContent);

  /// Throws JTextError when the last reading didn't come to the end of the file.
  void checkReplaceable() const;

  /// Whether the last reading came to the end of the file, or there was none.
  bool isReplaceable() const noexcept { return m_bReplaceable; }

  /// Hands on the lines of a file. Throws JSysError.
  static void forEachLine(const std::string& sName, const TakeLine& takeLine);

 private:
  std::string m_sName;
  bool m_bReplaceable = true;            ///< read to its end, or not there
  std::optional<std::string> m_sStored;  ///< what was read, up to the first replacement
};

namespace qm_storage {

/// A date in a file: as `JTime::toUSFormat`, but right up to the year 9999, so that what was read from a file
/// can be written again.
void appendLogDate(std::string& sLine, JTime time);

/// Reads such a date, whatever year stands in it.
JTime readLogDate(std::string_view sField);

/// Whether a text can stand in a line: it has no line break and no NUL, and with `cSeparator` not that
/// either.
bool fitsInLine(std::string_view sText, char cSeparator = '\n') noexcept;

/// Appends a text to a line, with blanks in the place of what doesn't fit in one and cut to so many bytes,
/// never inside a character.
void appendLogText(std::string& sLine, std::string_view sText, std::size_t uMaxSize, char cSeparator = '\n');

}  // namespace qm_storage
