#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "coreapi/qmutils/time/jtime.h"
#include "storage/TimeSpan.h"

class JParams;

namespace qm_manager {

/// Reads the parameters of one request, checking each of them. Throws JTextError with the parameter's name
/// for what is missing, of another type or out of range. One thread; the list outlives it.
class Request {
 public:
  explicit Request(const JParams& parameters) noexcept : m_parameters(parameters) {}

  const JParams& getParameters() const noexcept { return m_parameters; }

  std::string getText(std::string_view sKey) const;

  /// The same, or a text in the place of one that is missing.
  std::string getText(std::string_view sKey, const std::string& sDefault) const;

  std::int32_t getInteger(std::string_view sKey) const;

  /// A boolean; `bDefault` in the place of one that is missing.
  bool getFlag(std::string_view sKey, bool bDefault) const;

  /// A date up to the end of the year 9999.
  JTime getTime(std::string_view sKey) const;

  /// The span between two dates; the second isn't before the first.
  TimeSpan getSpan(std::string_view sStartKey, std::string_view sEndKey) const;

 private:
  std::int64_t getNumber(std::string_view sKey) const;

  const JParams& m_parameters;
};

}  // namespace qm_manager
