#include "coreapi/qmutils/log/JLogFilter.h"

#include <algorithm>
#include <utility>

#include "coreapi/qmutils/text/jglob.h"

namespace {

std::vector<std::string> split(std::string_view list) {
  std::vector<std::string> patterns;
  while (!list.empty()) {
    const std::string_view pattern = list.substr(0, list.find(';'));
    list.remove_prefix(std::min(pattern.size() + 1, list.size()));
    if (!pattern.empty()) {
      patterns.emplace_back(pattern);
    }
  }
  return patterns;
}

bool matchesAny(const std::vector<std::string>& patterns, std::string_view sText) noexcept {
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string& sPattern) { return qm_utils::matchesGlob(sPattern, sText); });
}

}  // namespace

JLogFilter::JLogFilter(std::string sInclude, std::string sExclude)
    : m_sInclude(std::move(sInclude)),
      m_sExclude(std::move(sExclude)),
      m_include(split(m_sInclude)),
      m_exclude(split(m_sExclude)) {}

bool JLogFilter::passes(std::string_view sText) const noexcept {
  return matchesAny(m_include, sText) && !matchesAny(m_exclude, sText);
}
