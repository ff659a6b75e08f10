// A file of an archive, read as each of the three logs. What a log has read it must store so that it is read
// again as the same; a file that couldn't be read whole must stay as it was.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "storage/AlarmLog.h"
#include "storage/MetaDataLog.h"
#include "storage/ProtectedLog.h"

namespace {

/// One file in memory's own file system, of this process.
const std::string& fileName() {
  static const std::string sName = "/dev/shm/fuzz_storage_logs." + std::to_string(getpid()) + ".log";
  return sName;
}

void write(const std::string& sContent) {
  std::ofstream(fileName(), std::ios::binary | std::ios::trunc) << sContent;
}

std::string read() {
  std::ifstream file(fileName(), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Reads the file, then what the log has made of it, and that once more. (Dates behind the year 9999 are
/// stored as earlier ones, so that the first two may differ in their order.)
template <class Log>
void readAgain(const std::string& sContent) {
  write(sContent);
  const Log first(fileName());
  const Log second(fileName());
  const std::string sStored = read();
  const Log third(fileName());
  if (first.getRecords().size() != third.getRecords().size() || read() != sStored) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  const std::string sContent(reinterpret_cast<const char*>(pData), uSize);
  readAgain<ProtectedLog>(sContent);
  readAgain<AlarmLog>(sContent);
  // Open ends become the current time at each reading, so that what is stored needn't stay the same.
  write(sContent);
  const MetaDataLog metaData(fileName());
  TimeSpanList spans;
  JParams pairs;
  pairs.add("*", "1..5, a*");
  metaData.getSpans(spans, pairs);
  return 0;
}
