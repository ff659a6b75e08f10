#include "qmmanager/plainfiles.h"

#include <algorithm>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/fileoperations.h"

namespace qm_manager {

bool isPlainName(std::string_view sName) noexcept {
  return std::all_of(sName.begin(), sName.end(), [](char c) {
    return static_cast<unsigned char>(c) >= 0x20 && c != '/' && c != '\\' && c != '\x7F';
  });
}

void discardFile(const std::string& sPath) noexcept {
  try {
    qm_utils::deleteFile(sPath);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

}  // namespace qm_manager
