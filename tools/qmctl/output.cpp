#include "tools/qmctl/output.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <utility>

#include "tools/qmctl/text.h"

namespace {

using qmctl::Json;

/// A value of bytes as it stands in the list.
std::string bytesToText(const JParams& params, const std::string& sName) {
  std::string sText;
  params.find(sName)->toText(sText);
  return sText.substr(sText.find('=') + 1);
}

Json paramToJson(const JParams& params, const std::string& sName, JVariant::Type eType) {
  bool bValue = false;
  std::int64_t iValue = 0;
  double dValue = 0;
  std::string sValue;
  switch (eType) {
    case JVariant::T_BOOL:
      params.get(sName, bValue);
      return bValue;
    case JVariant::T_INT:
      params.get(sName, iValue);
      return iValue;
    case JVariant::T_DOUBLE:
      params.get(sName, dValue);
      return dValue;
    case JVariant::T_STRING:
      params.get(sName, sValue);
      return sValue;
    default:
      return bytesToText(params, sName);
  }
}

}  // namespace

namespace qmctl {

Json toJson(const JParams& params) {
  Json object = Json::object();
  for (const auto& [sName, eType] : params.getTypes()) {
    object[sName] = paramToJson(params, sName, eType);
  }
  return object;
}

void writeJson(std::ostream& out, const Json& object) {
  out << object.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

Table::Table(std::ostream& out, std::vector<std::string> headers) : m_out(out), m_widths(headers.size()) {
  measure(headers);
  m_kept.push_back(std::move(headers));
}

void Table::add(std::vector<std::string> row) {
  std::ranges::transform(row, row.begin(), [](const std::string& sText) { return printable(sText); });
  if (!m_bMeasuring) {
    write(row);
    return;
  }
  measure(row);
  m_kept.push_back(std::move(row));
  if (m_kept.size() > kRowsForWidths) {
    finish();
  }
}

void Table::finish() {
  if (!m_bMeasuring || m_kept.size() < 2) {
    return;
  }
  for (const auto& row : m_kept) {
    write(row);
  }
  m_kept.clear();
  m_bMeasuring = false;
}

void Table::measure(const std::vector<std::string>& row) {
  for (std::size_t i = 0; i < m_widths.size() && i < row.size(); ++i) {
    m_widths[i] = std::max(m_widths[i], countCharacters(row[i]));
  }
}

void Table::write(const std::vector<std::string>& row) {
  for (std::size_t i = 0; i < row.size(); ++i) {
    m_out << row[i];
    if (i + 1 < row.size()) {
      const std::size_t uCharacters = countCharacters(row[i]);
      m_out << std::string(m_widths[i] - std::min(m_widths[i], uCharacters) + 2, ' ');
    }
  }
  m_out << '\n';
}

}  // namespace qmctl
