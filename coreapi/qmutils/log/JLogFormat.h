#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/log/JLogMsg.h"

/// The pattern by which a record becomes a text. A backslash and "n" stand for a line feed, a backslash and
/// "t" for a tab. A "%" introduces one letter, of either case:
///
///     %%  "%"                 %i  instance            %p  process id, "%u"
///     %c  class               %l  line, decimal       %t  thread id, "0x%.8x"
///     %d  local time          %m  message             %u  unit
///     %f  source file         %h  host                %w  short level name
///
/// The time reads "%02d/%02d/%04d %02d:%02d:%02d.%03d": month, day, year, time of day, milliseconds. Any
/// other letter, and a "%" at the end, stays as it stands with its "%". What is put in isn't scanned again.
///
/// An object is for one thread at a time: it keeps the text of the last second that it printed.
class JLogFormat {
 public:
  static constexpr const char* kDefault = "%w [%d] %t: %m";

  explicit JLogFormat(std::string_view sPattern = kDefault);

  /// Appends the text of a record to `sOut`, with `sMessage` in place of the record's own message.
  void expand(const JLog::Msg& record, std::string_view sMessage, std::string& sOut);

  /// Forgets the text of the last second, so that the next time is printed by the zone that holds then.
  void forgetTime() noexcept { m_bHasSecond = false; }

 private:
  /// Literal text, or what a letter stands for.
  struct Piece {
    char letter;  ///< 0 for literal text
    std::string sText;
  };

  void appendTime(JTime time, std::string& sOut);

  std::vector<Piece> m_pieces;
  bool m_bHasSecond = false;
  std::uint64_t m_uSecond = 0;  ///< whole seconds since 1601 that `m_sSecond` is the text of
  std::string m_sSecond;
};
