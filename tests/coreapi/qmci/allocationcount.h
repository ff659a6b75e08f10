#pragma once

#include <cstddef>

namespace qm_test {

/// Allocations through `operator new` that this thread has made; this executable replaces the operator.
std::size_t allocationCount() noexcept;

}  // namespace qm_test
