#include "qmactivexctrl/qmstorageaccesscontroller/ServerGeneration.h"

ServerGeneration selectGeneration(std::int32_t iMajor, std::int32_t iMinor) noexcept {
  constexpr std::int64_t kLastReference = 42;
  if (iMajor == 2) {
    return ServerGeneration::k22SP6;
  }
  return std::int64_t{iMajor} * 10 + iMinor > kLastReference ? ServerGeneration::k43
                                                             : ServerGeneration::k3X4X;
}

const char* getGenerationName(ServerGeneration eGeneration) noexcept {
  switch (eGeneration) {
    case ServerGeneration::k22SP6:
      return "2.2 SP6";
    case ServerGeneration::k43:
      return "4.3";
    default:
      return "3.x/4.x";
  }
}
