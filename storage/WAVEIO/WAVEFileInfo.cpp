#include "storage/WAVEIO/WAVEFileInfo.h"

#include <utility>

#include "storage/filekinds.h"

WAVEFileInfo::WAVEFileInfo(std::string sFileName) : FileInfo(std::move(sFileName)) {
  m_uTypeMagic = file_kinds::kWaveMagic;
  resetStreams(1);
  getStream(1)->setIndexType(FILEINDEX_NTP);
}
