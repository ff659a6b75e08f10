#include "coreapi/platform/typename.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace qm_platform {

std::string typeName(const std::type_info& type) {
  int iStatus = 0;
  const std::unique_ptr<char, decltype(&std::free)> pName(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &iStatus), &std::free);
  return pName != nullptr ? pName.get() : type.name();
}

}  // namespace qm_platform
