#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qmctl {

/// One value of a row of the control, as it stands in the row and as the tool shows it.
struct RowField {
  enum Kind {
    kQuoted,  ///< in double quotes, with none inside: a date
    kNumber,  ///< bare
    kText,    ///< in double quotes, and anything in between, double quotes too
    kRest,    ///< a parameter list up to the end of the row; it has no label
  };

  const char* szLabel;   ///< in the row
  const char* szKey;     ///< in JSON
  const char* szHeader;  ///< of the table's column
  Kind eKind;
};

/// Takes a row apart, whose fields stand in this order with commas between them; at most one of them is
/// `kText` or `kRest`. Rows hold texts as they are, so a text is what is left when all else is found. False
/// for a row of another form; the values are undefined then.
bool splitRow(std::string_view sRow, std::span<const RowField> fields, std::vector<std::string>& values);

}  // namespace qmctl
