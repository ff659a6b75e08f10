#include "qmactivexctrl/qmstorageaccesscontroller/RpcArgument.h"

#include <utility>

#include "coreapi/qmutils/time/jtime.h"
#include "coreapi/qmutils/time/ntpdate.h"

namespace {

/// Makes the variant of an argument; nothing for a date that isn't one.
struct ToVariant {
  const char* szName;

  std::optional<JVariant> operator()(std::int32_t iValue) const { return JVariant(szName, iValue); }
  std::optional<JVariant> operator()(std::string_view sValue) const { return JVariant(szName, sValue); }

  std::optional<JVariant> operator()(const RpcDate& date) const {
    JTime time;
    if (!qm_utils::parseNtpDate(date.sText.c_str(), time)) {
      return std::nullopt;
    }
    return ofTime(time);
  }

  std::optional<JVariant> operator()(const RpcOpenDate& date) const {
    JTime time;  // stays 0 for a text that is no date
    qm_utils::parseNtpDate(date.sText.c_str(), time);
    return ofTime(time);
  }

 private:
  JVariant ofTime(JTime time) const { return {szName, static_cast<std::int64_t>(time.getMicroseconds())}; }
};

}  // namespace

std::optional<RpcChain> RpcChain::make(std::initializer_list<RpcArgument> arguments) {
  RpcChain chain;
  chain.m_variants.reserve(arguments.size());
  for (const RpcArgument& argument : arguments) {
    std::optional<JVariant> variant = std::visit(ToVariant{argument.szName}, argument.value);
    if (!variant) {
      return std::nullopt;
    }
    if (!chain.m_variants.empty()) {
      chain.m_variants.back().setNext(chain.m_variants.data() + chain.m_variants.size());
    }
    chain.m_variants.push_back(std::move(*variant));
  }
  return chain;
}
