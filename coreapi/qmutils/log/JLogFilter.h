#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Two lists of glob patterns (`qm_utils::matchesGlob`), as keys of the configuration hold them: patterns
/// separated by ";". Empty patterns count for nothing. A plain value; its const operations from any thread.
class JLogFilter {
 public:
  JLogFilter() = default;
  JLogFilter(std::string sInclude, std::string sExclude);

  /// Whether at least one pattern of the include list matches a text, and none of the exclude list. So an
  /// empty include list lets nothing through.
  bool passes(std::string_view sText) const noexcept;

  const std::string& getInclude() const noexcept { return m_sInclude; }
  const std::string& getExclude() const noexcept { return m_sExclude; }

 private:
  std::string m_sInclude;
  std::string m_sExclude;
  std::vector<std::string> m_include;
  std::vector<std::string> m_exclude;
};
