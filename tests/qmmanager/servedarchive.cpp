#include "tests/qmmanager/servedarchive.h"

#include <filesystem>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "qmmanager/archivenames.h"
#include "storage/FileInfo.h"
#include "storage/Slice.h"
#include "tests/storage/readersupport.h"

namespace qm_test {

namespace {

JTime timeOfFrame(std::uint64_t i) {
  return JTime::fromMicroseconds(kBegin + i * kPeriod);
}

/// The number of the frame of a date; of a date between two, the first one with a "+".
std::string frameOf(const JParams& row, const char* szKey) {
  std::string sDate;
  JTime time;
  row.get(szKey, sDate, true);
  qm_utils::parseNtpDate(sDate.c_str(), time);
  const std::uint64_t uSince = time.getMicroseconds() - kBegin;
  return std::to_string(uSince / kPeriod) + (uSince % kPeriod == 0 ? "" : "+");
}

}  // namespace

std::string frameDate(std::uint64_t i) {
  std::string sDate;
  qm_utils::formatNtpDate(timeOfFrame(i), sDate);
  return sDate;
}

LineClient::LineClient(std::uint16_t uPort) : JLineIO(std::size_t{64} << 20) {
  auto pSocket = std::make_unique<JTCPSocket>();
  pSocket->connect(JInetAddr("127.0.0.1", uPort));
  pSocket->setReadTimeout(60'000);
  setSocket(pSocket.release(), true);
}

std::string LineClient::ask(const std::string& sRequest) {
  beginLine() = sRequest;
  writeBuiltLine();
  return std::string(readLine().value_or("closed"));
}

ServedArchive::ServedArchive() {
  FileInfo::initCache(16);
  qm_manager::ArchiveRoot(root(), qm_manager::ArchiveRoot::Creation::kWhenEmpty);
}

ServedArchive::~ServedArchive() {
  stop();
  FileInfo::closeCache();
}

std::string ServedArchive::unit(const std::string& sSource, std::int32_t iFps) const {
  const std::string sDirectory = qm_manager::unitDirectory(root(), sSource, iFps);
  std::filesystem::create_directories(sDirectory);
  return sDirectory;
}

std::string ServedArchive::record(const std::string& sSource, std::int32_t iFps, std::uint64_t uFirst,
                                  std::uint64_t uFrames, const qm_ci::StreamInfo& stream, std::size_t uSize,
                                  std::uint16_t wPictureType) const {
  const std::string sPath = temp.path("recording.asf");
  {
    const auto pOutput = writerOf("asf", sPath);
    pOutput->open(&stream, nullptr, nullptr);
    for (std::uint64_t i = uFirst; i < uFirst + uFrames; ++i) {
      Frame frame = numbered(1, i, uSize);
      frame.wPictureType = wPictureType;
      write(*pOutput, 1, frame);
    }
  }
  const TimeSpan span(timeOfFrame(uFirst), timeOfFrame(uFirst + uFrames - 1));
  const std::string sName = Slice::computeFileName(span, std::filesystem::file_size(sPath), ".asf");
  const std::string sSlice = unit(sSource, iFps) + "/" + sName;
  std::filesystem::rename(sPath, sSlice);
  return sSlice;
}

void ServedArchive::serve(const qm_manager::Manager::Settings& settings) {
  stop();
  pArchive = std::make_unique<qm_manager::Archive>(root(), qm_manager::ArchiveRoot::Creation::kExisting);
  pManager = std::make_unique<qm_manager::Manager>(*pArchive, settings);
  pManager->start();
  pControl = std::make_unique<StorageAccessController>(nullptr);
  pControl->setHost("127.0.0.1");
  pControl->setPort(pManager->getPort());
  pControl->setTimeOut(60'000);
  pControl->setBlocking(true);
  pControl->connect();
}

void ServedArchive::stop() {
  pControl.reset();
  pManager.reset();
  pArchive.reset();
}

std::vector<std::string> ServedArchive::rows(std::int32_t iQuery) {
  std::vector<std::string> all;
  for (std::string sRow = pControl->getNext(iQuery); !sRow.empty(); sRow = pControl->getNext(iQuery)) {
    all.push_back(sRow);
  }
  return all;
}

std::string ServedArchive::message() {
  const std::string sMessage = pControl->getLastError();
  while (!pControl->getLastError().empty()) {
  }
  return sMessage;
}

std::vector<std::string> ServedArchive::found(const std::string& sCriteria) {
  std::vector<std::string> items;
  for (const std::string& sRow : rows(pControl->databaseQuery(sCriteria))) {
    JParams row;
    row.parse(sRow);
    std::string sSource;
    std::string sFps;
    row.get("Sourcename", sSource, true);
    row.get("Fps", sFps, true);
    items.push_back(sSource + "/" + sFps + " " + frameOf(row, "StartDate") + "-" + frameOf(row, "EndDate"));
  }
  return items;
}

std::string ServedArchive::ask(const std::string& sRequest) const {
  return LineClient(pManager->getPort()).ask(sRequest);
}

}  // namespace qm_test
