// A parameter list from outside: what is read is written within its bound, and reads back as the same
// entries. Doubles are left out of that, as six digits of them are written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/jparams.h"

namespace {

void require(bool bHolds) {
  if (!bHolds) {
    std::abort();
  }
}

bool parses(JParams& params, std::string_view sText) {
  try {
    require(params.parse(sText) <= sText.size());
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    require(!error->getMessage().empty());
    return false;
  }
}

std::string written(const JParams& params) {
  std::string sText;
  params.toText(sText);
  require(sText.size() <= params.getMaxLength());
  require(sText.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos);
  return sText;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  JParams params;
  if (!parses(params, {reinterpret_cast<const char*>(data), size})) {
    require(params.isEmpty());
    return 0;
  }
  written(params);

  JParams exact;
  for (const auto& [sName, eType] : params.getTypes()) {
    if (eType != JVariant::T_DOUBLE) {
      exact.add(std::make_unique<JVariant>(*params.find(sName, true)));
    }
  }
  const std::string sText = written(exact);
  JParams read;
  require(parses(read, sText));
  require(read.getTypes() == exact.getTypes());
  for (const std::string& sName : exact.getNames()) {
    require(*read.find(sName, true) == *exact.find(sName, true));
  }
  require(written(read) == sText);
  return 0;
}
