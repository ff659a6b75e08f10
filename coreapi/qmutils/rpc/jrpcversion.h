#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

/// Version of the protocol that a server speaks; 0.0 while it isn't known. A plain value, ordered by `major`,
/// then `minor`: 4.10 is above 4.9.
struct JRPCVersion {
  std::int32_t major = 0;
  std::int32_t minor = 0;

  /// "MAJOR.MINOR", both in decimal.
  std::string toText() const;

  /// Reads a text of exactly two parts with a "." between them. Each part is read as "%d" does it: blanks
  /// before the number are skipped, and what follows it is ignored. False when the text is of another form;
  /// the value is 0.0 then.
  bool fromText(std::string_view sText);

  friend auto operator<=>(const JRPCVersion&, const JRPCVersion&) = default;
};
