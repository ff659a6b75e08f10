#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "coreapi/qmutils/params/jvariant.h"

/// A date text that goes out as a count of microseconds since 1601.
struct RpcDate {
  explicit RpcDate(const std::string& sDate) : sText(sDate) {}
  const std::string& sText;
};

/// A date text that may be left empty, or be none: it goes out as 0 then, the open end.
struct RpcOpenDate {
  explicit RpcOpenDate(const std::string& sDate) : sText(sDate) {}
  const std::string& sText;
};

/// One parameter of a call, for as long as the call is put together: what it refers to is the caller's.
struct RpcArgument {
  const char* szName;
  std::variant<std::int32_t, std::string_view, RpcDate, RpcOpenDate> value;
};

/// The parameters of one call, linked in their order.
class RpcChain {
 public:
  /// Nothing when one of the dates isn't one.
  static std::optional<RpcChain> make(std::initializer_list<RpcArgument> arguments);

  RpcChain(const RpcChain&) = delete;
  RpcChain& operator=(const RpcChain&) = delete;
  RpcChain(RpcChain&&) noexcept = default;
  RpcChain& operator=(RpcChain&&) noexcept = default;

  /// The first one; null when there is none.
  const JVariant* head() const noexcept { return m_variants.empty() ? nullptr : m_variants.data(); }

 private:
  RpcChain() = default;

  std::vector<JVariant> m_variants;  ///< moves as a whole, so that the links stay
};
