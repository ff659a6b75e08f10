#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "qmactivexctrl/common/iqmstorageaccessctrl.h"
#include "qmactivexctrl/common/qmvariant.h"

/// The forms in which a member can be called.
enum class QMInvokeKind : std::uint16_t { kMethod = 1, kPropertyGet = 2, kPropertyPut = 4 };

/// What an argument or a result is.
enum class QMKind : std::uint8_t { kNone, kLong, kFloat, kString };

/// What can be called by number: a member, or an event of the host's.
struct QMCallable {
  static constexpr std::size_t kMaxParameters = 9;

  std::int32_t iDispid = 0;
  const char* szName = nullptr;

  /// In the order of declaration, without the result. The value of a property put has no name.
  std::array<const char*, kMaxParameters> parameterNames{};
  std::size_t uParameterNames = 0;
};

/// A member of `IQMStorageAccessCtrl`.
struct QMMember : QMCallable {
  /// Calls the member. The arguments stand in the order of declaration; `pResult` takes the result and may be
  /// null. What it holds is, where it converts, the value of the out argument before the call.
  using Call = QMStatus (*)(IQMStorageAccessCtrl& control, std::span<const QMVariant> arguments,
                            QMVariant* pResult);

  QMInvokeKind eKind = QMInvokeKind::kMethod;
  std::array<QMKind, kMaxParameters> parameterKinds{};
  std::size_t uParameters = 0;
  QMKind eResult = QMKind::kNone;
  Call pCall = nullptr;
};

/// The 48 members in the order of the interface.
std::span<const QMMember> getControlMembers() noexcept;

/// The two events.
std::span<const QMCallable> getControlEvents() noexcept;

namespace qm_dispid {

// Events. Never renumber; members have the numbers of the table.
constexpr std::int32_t kLinkUp = 1;
constexpr std::int32_t kLinkDown = 2;

}  // namespace qm_dispid

/// The member of a number or a name in one of its forms, or null. Names are compared byte by byte.
const QMMember* findControlMember(std::int32_t iDispid, QMInvokeKind eKind) noexcept;
const QMMember* findControlMember(std::string_view sName, QMInvokeKind eKind) noexcept;
