// Finds the recordings of a source and copies each of them into a media file.
//
//   evidence HOST PORT SOURCE FOLDER
//
// SOURCE may hold wildcards. FOLDER must be there; the files are recording1.asf, recording2.asf and so on.

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/text/jutf8codec.h"
#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"

namespace {

std::string utf8(const std::u16string& sText) {
  return JUTF8Codec::toUtf8(sText.c_str());
}

/// Tells why the last member failed, newest first, and gives the program's exit status.
int fail(JQMStorageAccessCtrl& control, const char* szWhat) {
  std::cerr << szWhat << '\n';
  std::u16string sReason;
  for (control.GetLastError(sReason); !sReason.empty(); control.GetLastError(sReason)) {
    std::cerr << "  " << utf8(sReason) << '\n';
  }
  return 1;
}

/// The rows of a query, one for each uninterrupted recording. Empty when there are none, or it failed.
std::vector<std::u16string> search(JQMStorageAccessCtrl& control, const std::u16string& sCriteria) {
  std::int32_t iQuery = 0;
  control.DatabaseQuery(sCriteria.c_str(), iQuery);
  std::vector<std::u16string> rows;
  std::u16string sRow;
  if (iQuery != 0) {
    for (control.GetNext(iQuery, sRow); !sRow.empty(); control.GetNext(iQuery, sRow)) {
      rows.push_back(sRow);
    }
  }
  return rows;
}

/// Copies the span of a row. Dates come from the row as they are taken by the members.
bool copy(JQMStorageAccessCtrl& control, const std::u16string& sRow, const std::string& sFile) {
  std::u16string sSource;
  std::u16string sStart;
  std::u16string sEnd;
  std::int32_t iFps = 0;
  control.ExtractString(u"Sourcename", sRow.c_str(), sSource);
  control.ExtractInteger(u"Fps", sRow.c_str(), iFps);
  control.ExtractString(u"StartDate", sRow.c_str(), sStart);
  control.ExtractString(u"EndDate", sRow.c_str(), sEnd);
  std::int32_t iResult = -1;
  control.RemoteCopy(sSource.c_str(), iFps, JUTF8Codec::toWide(sFile.c_str()).c_str(), sStart.c_str(),
                     sEnd.c_str(), iResult);
  return iResult == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: evidence HOST PORT SOURCE FOLDER\n";
    return 2;
  }
  JLog::init(0);  // nothing on the standard error stream but what is said here
  JQMStorageAccessCtrl control;
  control.put_Server(JUTF8Codec::toWide(argv[1]).c_str());
  control.put_Port(std::atoi(argv[2]));
  control.put_Blocking(1);
  std::int32_t iResult = -1;
  control.Connect(iResult);
  if (iResult != 0) {
    return fail(control, "there is no connection");
  }

  const auto rows = search(control, u"SourceName=\"" + JUTF8Codec::toWide(argv[3]) + u"\"");
  if (rows.empty()) {
    return fail(control, "nothing was found");
  }
  int iNumber = 0;
  for (const std::u16string& sRow : rows) {
    const std::string sFile = std::string(argv[4]) + "/recording" + std::to_string(++iNumber) + ".asf";
    std::cout << utf8(sRow) << '\n';
    if (!copy(control, sRow, sFile)) {
      return fail(control, "it couldn't be copied");
    }
    std::cout << "  -> " << sFile << '\n';
  }
  return 0;
}
