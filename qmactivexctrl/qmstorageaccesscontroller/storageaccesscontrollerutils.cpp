#include "qmactivexctrl/qmstorageaccesscontroller/storageaccesscontrollerutils.h"

std::string formatSource(const std::string& sName, const std::vector<std::int32_t>& rates) {
  std::string sRow = "SourceName=\"" + sName + "\",Fps=\"";
  const char* szSeparator = "";
  for (const std::int32_t iRate : rates) {
    sRow += szSeparator + std::to_string(iRate);
    szSeparator = ",";
  }
  return sRow += '"';
}
