#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The row of a source: `SourceName="cam 1",Fps="25,5"`, with the rates in their order. The name stands as it
/// is.
std::string formatSource(const std::string& sName, const std::vector<std::int32_t>& rates);
