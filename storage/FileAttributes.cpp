#include "storage/FileAttributes.h"

std::string FileAttributes::toText(std::string_view sSeparator) const {
  std::string sText;
  const auto add = [&](std::string_view sName, bool bValue) {
    sText += sName;
    sText += bValue ? "=1" : "=0";
    sText += sSeparator;
  };
  add("allowRecording", allowRecording);
  add("original", original);
  add("crc", crc);
  return sText + "scrambling=" + std::to_string(scrambling);
}
