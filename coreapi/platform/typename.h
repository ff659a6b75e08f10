#pragma once

#include <string>
#include <typeinfo>

namespace qm_platform {

/// The name of a class as it stands in its source, such as "JQMStorageAccessCtrl".
std::string typeName(const std::type_info& type);

}  // namespace qm_platform
