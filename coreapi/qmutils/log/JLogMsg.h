#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/time/jtime.h"

/// One record of the log. A plain value.
///
/// Its binary form carries records between processes. It is a sequence of fields, each a tag of one ASCII
/// byte, a length of 4 bytes, and the value; lengths and numbers stand most significant byte first, strings
/// without a terminator:
///
///     tag  field       value
///     w    level       4 bytes
///     d    time        8 bytes, microseconds since the start of 1601, UTC
///     p    process id  4 bytes
///     t    thread id   4 bytes
///     i    instance    string
///     u    unit        string
///     h    host        string
///     l    line        4 bytes
///     f    file        string
///     c    class       string
///     m    message     string
///
/// The writer keeps this order and leaves empty strings out; the reader takes fields in any order.
struct JLog::Msg {
  std::uint32_t uLevel = 0;
  std::string sMessage;
  JTime time;
  std::uint32_t uProcessId = 0;
  std::uint32_t uThreadId = 0;
  std::string sInstance;  ///< name of the object that logs
  std::string sUnit;      ///< file name of the program, without directory
  std::string sHost;      ///< empty in the process that made the record
  std::string sFile;      ///< source file of the site, may be empty
  std::uint32_t uLine = 0;
  std::string sClass;  ///< run-time class of the object that logs, or a tag

  bool operator==(const Msg&) const = default;

  /// Writes the binary form into at most `uLimit` bytes and returns their number. The first field that finds
  /// no room for itself and its 5 bytes of tag and length ends the form, but file and message are cut to what
  /// there is room for, down to one byte.
  std::size_t serialise(std::uint8_t* pBuffer, std::size_t uLimit) const;

  /// Reads the binary form into `record`, which starts out empty. Unknown tags, and numbers of another length
  /// than theirs, are skipped; a string that runs past the end of the input is taken as far as it goes. False
  /// when there are fewer than 2 bytes.
  static bool deserialise(const std::uint8_t* pData, std::size_t uSize, Msg& record);
};
