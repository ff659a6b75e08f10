#include "storage/AVIIO/AVIFileInfo.h"

#include <utility>

#include "storage/AVIIO/aviformat.h"

AVIFileInfo::AVIFileInfo(std::string sFileName) : FileInfo(std::move(sFileName)) {
  resetStreams(avi_layout::kAudioStream);
}
