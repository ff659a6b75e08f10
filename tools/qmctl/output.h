#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "coreapi/qmutils/params/jparams.h"

namespace qmctl {

using Json = nlohmann::ordered_json;

/// A parameter list as an object, each value by its type; bytes are the text that the list has for them.
Json toJson(const JParams& params);

/// Writes one object and a line feed. Always valid JSON.
void writeJson(std::ostream& out, const Json& object);

/// A table with a header and aligned columns, for people. The columns take their widths from the first rows;
/// after those each row is written as it comes, so that a long list starts early and isn't kept in memory.
class Table {
 public:
  Table(std::ostream& out, std::vector<std::string> headers);

  /// One text a column.
  void add(std::vector<std::string> row);

  /// Writes what is kept back. Without any row nothing is written, the header neither.
  void finish();

 private:
  static constexpr std::size_t kRowsForWidths = 200;

  void measure(const std::vector<std::string>& row);
  void write(const std::vector<std::string>& row);

  std::ostream& m_out;
  std::vector<std::vector<std::string>> m_kept;  ///< the header first
  std::vector<std::size_t> m_widths;             ///< in characters
  bool m_bMeasuring = true;
};

}  // namespace qmctl
