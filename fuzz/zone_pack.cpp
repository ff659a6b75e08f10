// A zone pack of unknown origin: the first byte says how long the name is, then come the name and the pack.
// What is left is also read as a TZif image by itself.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/time/jsplittime.h"
#include "coreapi/qmutils/time/timezone.h"
#include "coreapi/qmutils/time/tzifzone.h"
#include "coreapi/qmutils/time/zonepack.h"

namespace {

void convert(const qm_utils::ZoneRules& rules) {
  for (const std::int64_t iInstant :
       {std::int64_t{INT32_MIN}, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1300000000},
        std::int64_t{INT32_MAX}, std::int64_t{1} << 44}) {
    const qm_utils::LocalInstant local = rules.at(iInstant);
    rules.toUnixSeconds(local.iWallSeconds);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*pCount*/, char*** /*pArguments*/) {
  qm_err::setLogHook(nullptr);  // every pack without the zone is an ERROR in the log
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::size_t nameLength = std::min<std::size_t>(*pData, size - 1);
  const std::string sName(pData + 1, pData + 1 + nameLength);
  const std::span<const std::uint8_t> pack(pData + 1 + nameLength, size - 1 - nameLength);

  if (const auto pZone = qm_utils::TzifZone::parse(pack)) {
    convert(*pZone);
  }
  if (const auto image = qm_utils::buildTzifImage(pack, sName)) {
    if (const auto pZone = qm_utils::TzifZone::parse(*image)) {
      convert(*pZone);
    }
  }
  qm_utils::setLocalTimeZone(sName, pack);
  JLocalSplitTime time(JTime::fromUnixSeconds(1300000000));
  time.fromFields();
  if (time.toUSFormat().size() > 49) {
    std::abort();
  }
  qm_utils::resetLocalTimeZone();
  return 0;
}
