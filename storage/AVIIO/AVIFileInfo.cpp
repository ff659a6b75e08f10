#include "storage/AVIIO/AVIFileInfo.h"

#include <utility>

#include "storage/AVIIO/aviformat.h"

AVIFileInfo::AVIFileInfo(std::string sFileName) : FileInfo(std::move(sFileName)) {
  m_uTypeMagic = riff_layout::kRiff;
  resetStreams(avi_layout::kAudioStream);
  m_uVideoHandler = avi_layout::stream_header::kHandler;
  m_bAudioBlocks = true;
}
