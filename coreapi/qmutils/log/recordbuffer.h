#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace qm_utils {

/// The buffer of a class that sends or receives records: the given size and one byte more. Throws
/// `JGenericError` when there is no memory for it, or the size is negative.
std::unique_ptr<std::uint8_t[]> makeRecordBuffer(const char* szClass, const std::string& sName,
                                                 int iBufferSize);

}  // namespace qm_utils
