#pragma once

#include <cstdint>

class JQMStorageAccessCtrl;

/// The numbers by which threads of this process hand controls to each other. Any thread.
namespace qm_control {

/// A new number for a control, never 0.
std::int32_t enterControl(JQMStorageAccessCtrl& control);

/// The control of a number, and the number is spent; null for one that isn't good, or isn't any more. Whoever
/// takes a control must know that it lives on.
JQMStorageAccessCtrl* takeControl(std::int32_t iId) noexcept;

/// Spends all numbers of a control that is about to end.
void forgetControl(const JQMStorageAccessCtrl& control) noexcept;

}  // namespace qm_control
