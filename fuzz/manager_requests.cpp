// Request lines of a client at the Manager of a small archive: whatever they ask, each gets an answer that is
// a line, and nothing is made outside the archive.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/rpcline.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmmanager/archive.h"
#include "qmmanager/archivenames.h"
#include "qmmanager/manager.h"
#include "storage/FileInfo.h"
#include "storage/Slice.h"
#include "tests/storage/readersupport.h"
#include "tests/support/tempdir.h"

namespace {

namespace fs = std::filesystem;
using qm_manager::ArchiveRoot;

/// An archive with one source, and its Manager, which nobody can connect to.
class Served {
 public:
  Served() {
    ArchiveRoot(m_temp.path("archive"), ArchiveRoot::Creation::kWhenEmpty);
    const std::string sUnit = qm_manager::unitDirectory(m_temp.path("archive"), "gate", 25);
    fs::create_directories(sUnit);
    for (const char* const szOther : {"copies", "imports"}) {
      fs::create_directory(m_temp.path(szOther));
    }
    qm_test::writeAsf(m_temp.path("imports/a.asf"), kFrames);
    const TimeSpan span(JTime::fromMicroseconds(qm_test::kBegin),
                        JTime::fromMicroseconds(qm_test::kBegin + (kFrames - 1) * qm_test::kPeriod));
    fs::copy_file(
        m_temp.path("imports/a.asf"),
        sUnit + "/" + Slice::computeFileName(span, fs::file_size(m_temp.path("imports/a.asf")), ".asf"));
    m_pArchive =
        std::make_unique<qm_manager::Archive>(m_temp.path("archive"), ArchiveRoot::Creation::kExisting);
    qm_manager::Manager::Settings settings;
    settings.sCopyDirectory = m_temp.path("copies");
    settings.sImportDirectory = m_temp.path("imports");
    m_pManager = std::make_unique<qm_manager::Manager>(*m_pArchive, settings);
  }

  void ask(std::string_view sLine) {
    namespace rpc_line = qm_utils::rpc_line;
    std::string sAnswer;
    try {
      if (const auto pAnswer = m_pManager->parseRequest(sLine, 1)) {
        pAnswer->toText(sAnswer);
      }
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      rpc_line::writeFailure(sAnswer, *error);
    }
    if (!rpc_line::isOneLine(sAnswer)) {
      std::abort();
    }
  }

  void checkSurroundings() const {
    for (const auto& entry : fs::directory_iterator(m_temp.path(""))) {
      const std::string sName = entry.path().filename();
      if (sName != "archive" && sName != "copies" && sName != "imports") {
        std::abort();
      }
    }
  }

 private:
  static constexpr std::uint64_t kFrames = 20;

  qm_test::TempDir m_temp;
  std::unique_ptr<qm_manager::Archive> m_pArchive;
  std::unique_ptr<qm_manager::Manager> m_pManager;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*pCount*/, char*** /*pArguments*/) {
  qm_err::setLogHook(nullptr);
  FileInfo::initCache(4);
  // Commands wait for the disk: one in memory doesn't let them wait.
  setenv("TMPDIR", "/dev/shm", 0);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  static const QMXmlUse s_xml;
  constexpr std::size_t kInputsOfAnArchive = 500;
  constexpr int kMostLines = 16;
  static std::unique_ptr<Served> s_pServed;
  static std::size_t s_uInputs = 0;
  if (s_uInputs++ % kInputsOfAnArchive == 0) {
    s_pServed.reset();
    s_pServed = std::make_unique<Served>();
  }
  std::string_view sLines(reinterpret_cast<const char*>(pData), uSize);
  for (int i = 0; i < kMostLines && !sLines.empty(); ++i) {
    const std::size_t end = std::min(sLines.find('\n'), sLines.size());
    s_pServed->ask(sLines.substr(0, end));
    sLines.remove_prefix(std::min(end + 1, sLines.size()));
  }
  s_pServed->checkSurroundings();
  return 0;
}
