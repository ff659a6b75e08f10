// One parameter out of a list from outside: the reader of one and the reader of all agree about which texts
// are lists, which names stand in them, and what their values are.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "coreapi/qmutils/params/jparams.h"

namespace {

void require(bool bHolds) {
  if (!bHolds) {
    std::abort();
  }
}

/// Whether an operation ends without an error.
template <class Operation>
bool succeeds(Operation operation) {
  try {
    operation();
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view sText(reinterpret_cast<const char*>(data), size);
  JParams params;
  const bool bList = succeeds([&] { params.parse(sText); });

  // An empty list holds no parameter to look for: that is an error to the reader of one.
  JVariant absent;
  bool bFound = false;
  const bool bSearched = succeeds([&] { bFound = absent.parse(sText, "="); });
  require(bSearched == (bList && !params.isEmpty()));
  require(!bFound && absent.getName() == nullptr);

  // A list of many names is looked through for the first ones only, so that a run's time stays in step.
  std::size_t left = 16;
  for (const std::string& sName : params.getNames()) {
    if (left-- == 0) {
      break;
    }
    JVariant single;
    require(succeeds([&] { bFound = single.parse(sText, sName); }) && bFound);
    require(sName == single.getName() && single == *params.find(sName, true));
  }
  return 0;
}
