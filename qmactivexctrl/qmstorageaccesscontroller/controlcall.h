#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jutf8codec.h"
#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"

// How the members of the control call its front: text is converted both ways, and nothing that is thrown
// reaches the host.

namespace qm_control {

inline std::string inside(const char16_t* szText) {
  return JUTF8Codec::toUtf8(szText);
}
inline std::int32_t inside(std::int32_t iValue) noexcept {
  return iValue;
}

inline std::u16string outside(const std::string& sText) {
  return JUTF8Codec::toWide(sText.c_str());
}
inline std::int32_t outside(std::int32_t iValue) noexcept {
  return iValue;
}

}  // namespace qm_control

/// Runs the body of a member. An error leaves the out arguments as the body has set them so far.
template <typename Body>
QMStatus JQMStorageAccessCtrl::run(Body body) noexcept {
  try {
    body();
    return QMStatus::kOk;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return QMStatus::kOk;
  } catch (const std::exception&) {
    return QMStatus::kOutOfMemory;
  }
}

/// Runs a member that is one operation of the archive.
template <typename Out, typename Failure, typename Result, typename... Parameters, typename... Arguments>
QMStatus JQMStorageAccessCtrl::ask(Out& out, Failure failure,
                                   Result (IStorageAccessControl::*operation)(Parameters...),
                                   const Arguments&... arguments) noexcept {
  out = failure;
  return run([&] {
    out = qm_control::outside((m_pStorageAccessCtrl.get()->*operation)(qm_control::inside(arguments)...));
  });
}
