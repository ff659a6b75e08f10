#include "storage/WAVEIO/WAVEFileInfo.h"

#include <utility>

WAVEFileInfo::WAVEFileInfo(std::string sFileName) : FileInfo(std::move(sFileName)) {
  resetStreams(1);
}
