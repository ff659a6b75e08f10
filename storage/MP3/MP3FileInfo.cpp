#include "storage/MP3/MP3FileInfo.h"

#include <utility>

MP3FileInfo::MP3FileInfo(std::string sFileName) : FileInfo(std::move(sFileName)) {
  resetStreams(1);
  getStream(1)->setIndexType(FILEINDEX_NTP);
  m_bOnFlyIndexing = true;
}
