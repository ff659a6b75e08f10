// Copies of recordings: by the server on its own side, into a file here, and into a child process.

#include <memory>
#include <optional>
#include <utility>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/streamfactory.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/socket/jprocesspipe.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "coreapi/qmutils/time/jtime.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "qmactivexctrl/qmstorageaccesscontroller/DataReceiver.h"
#include "qmactivexctrl/qmstorageaccesscontroller/SocketReader.h"
#include "storage/FileOutput.h"

namespace {

/// The longest span of one backup, microseconds: 72 hours.
constexpr std::uint64_t MAX_BACKUP_INTERVAL = 259'200'000'000;

constexpr std::int32_t kSizeFailed = 1;
constexpr std::int32_t kSizeUnknown = 0;

constexpr const char* kRpcFailed = "Remote Backup Failed: RPC";
constexpr const char* kLocalRpcFailed = "Local Backup Failed: RPC";

std::string offeredProtocols() {
  std::string sProtocols;
  qm_stream::protocolText(sProtocols, qm_stream::kPulledProtocol);
  return sProtocols;
}

/// Closes a child's input and waits until it has ended.
void endChild(JProcessPipe& process) {
  try {
    process.wait(true, true);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

/// The extension of the output when the caller gives none.
const char* extensionFor(const qm_ci::StreamInfo* pStreamInfo) {
  return pStreamInfo != nullptr && pStreamInfo->getType() == qm_ci::StreamInfo::kAudio ? ".mp3" : ".asf";
}

/// Tells the file which program has made the recording; a server that doesn't say it is no failure.
void setAuthoringApp(const JParams& answer, JParams& params) {
  try {
    std::string sAuthoringApp;
    answer.get("authoringApp", sAuthoringApp, true);
    params.add("authoringApp", std::string_view(sAuthoringApp));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

/// Adds a date unless there is one.
void addDate(JParams& params, const char* szName, const std::string& sDate) {
  JTime time;
  if (params.find(szName) == nullptr && qm_utils::parseNtpDate(sDate.c_str(), time)) {
    params.add(szName, std::string_view(time.toUSFormat()));
  }
}

}  // namespace

/// A backup's texts for what ends it before the first call.
struct StorageAccessController3X4X::BackupTexts {
  const char* szNotConnected;
  const char* szBadDate;
  const char* szTooLarge;
};

namespace {

constexpr const char* kRemoteNotConnected = "Remote Backup Failed: Not connected to Manager";
constexpr const char* kRemoteBadDate = "Remote Backup Failed: Bad format for Ntp date (see documentation)";
constexpr const char* kRemoteTooLarge = "Remote Backup Failed: Interval too large";

}  // namespace

/// Whether the link stands and the dates are a span that may be copied; else it is reported. An end before
/// the start is too large a span too.
bool StorageAccessController3X4X::checkBackup(const BackupTexts& texts, const std::string& sStart,
                                              const std::string& sEnd) {
  if (!checkConnected(texts.szNotConnected)) {
    return false;
  }
  JTime start;
  JTime end;
  if (!qm_utils::parseNtpDate(sStart.c_str(), start) || !qm_utils::parseNtpDate(sEnd.c_str(), end)) {
    reportFailure(texts.szBadDate, __FILE_NAME__, __LINE__);
    return false;
  }
  if (std::uint64_t{end.getMicroseconds()} - std::uint64_t{start.getMicroseconds()} > MAX_BACKUP_INTERVAL) {
    reportFailure(texts.szTooLarge, __FILE_NAME__, __LINE__);
    return false;
  }
  return true;
}

/// Calls the server with arguments whose dates were checked. Null when that fails, which is reported; a
/// refusal is an answer.
std::unique_ptr<JParams> StorageAccessController3X4X::callForBackup(
    const char* szRpc, std::initializer_list<RpcArgument> arguments, const char* szFailure) {
  std::unique_ptr<JParams> pAnswer;
  attempt(szFailure, [&] {
    const std::optional<RpcChain> chain = RpcChain::make(arguments);
    pAnswer = m_client.call(szRpc, chain ? chain->head() : nullptr, m_iTimeOut);
  });
  return pAnswer;
}

/// Whether there is an answer that isn't a refusal; one that can't be read is a failed call.
bool StorageAccessController3X4X::isAccepted(const JParams* pAnswer, const char* szFailure) {
  bool bAccepted = false;
  return pAnswer != nullptr && attempt(szFailure, [&] { bAccepted = checkRemoteError(*pAnswer); }) &&
         bAccepted;
}

/// Deletes a file of a backup in which nothing is; one into a child has no path. A device, such as the null
/// device, stays.
void StorageAccessController3X4X::deleteBackupFile(const std::string& sPath) {
  if (sPath.empty()) {
    return;
  }
  try {
    std::uint32_t uType = 0;
    qm_utils::getFileInfo(sPath, &uType);
    if (uType == qm_utils::kPlainFile) {
      qm_utils::deleteFile(sPath);
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

/// The copy that runs, for whoever cancels it.
class StorageAccessController3X4X::RunningCopy {
 public:
  explicit RunningCopy(StorageAccessController3X4X& controller) : m_controller(controller) {
    const JAutoLock lock(m_controller.m_copyMutex);
    m_controller.m_pRunningCopy = this;
  }
  ~RunningCopy() {
    const JAutoLock lock(m_controller.m_copyMutex);
    m_controller.m_pRunningCopy = nullptr;
  }
  RunningCopy(const RunningCopy&) = delete;
  RunningCopy& operator=(const RunningCopy&) = delete;

  /// What receives it, from now on to the end of this. Aborts it when the copy has been cancelled already.
  void setReceiver(DataReceiver& receiver) {
    const JAutoLock lock(m_controller.m_copyMutex);
    m_pReceiver = &receiver;
    if (m_bCancelled) {
      m_pReceiver->abort();
    }
  }

  /// The controller's mutex is held.
  void cancel() noexcept {
    m_bCancelled = true;
    if (m_pReceiver != nullptr) {
      m_pReceiver->abort();
    }
  }

 private:
  StorageAccessController3X4X& m_controller;
  DataReceiver* m_pReceiver = nullptr;
  bool m_bCancelled = false;
};

bool StorageAccessController3X4X::cancelCopy() noexcept {
  const JAutoLock lock(m_copyMutex);
  if (m_pRunningCopy == nullptr) {
    return false;
  }
  m_pRunningCopy->cancel();
  return true;
}

std::int32_t StorageAccessController3X4X::localCopy(const std::string& sSource, std::int32_t iFps,
                                                    const std::string& sPath, const std::string& sStart,
                                                    const std::string& sEnd) {
  static constexpr BackupTexts kTexts = {
      "Local Backup Failed: Not connected to Manager",
      "Local Backup Failed Failed: Bad format for Ntp date (see documentation)",
      "Local Backup Failed: Interval too large"};
  if (!checkBackup(kTexts, sStart, sEnd)) {
    return kCommandFailed;
  }
  const std::unique_ptr<JParams> pAnswer = callForBackup("rpc_localCopy",
                                                         {{"SourceName", sSource},
                                                          {"Fps", iFps},
                                                          {"TsBackupStartDate", RpcDate(sStart)},
                                                          {"TsBackupEndDate", RpcDate(sEnd)},
                                                          {"BackupPath", sPath},
                                                          {"WithAuthentication", true}},
                                                         kLocalRpcFailed);
  return isAccepted(pAnswer.get(), kLocalRpcFailed) ? kDone : kCommandFailed;
}

std::int32_t StorageAccessController3X4X::getRecordingSize(const std::string& sSource, std::int32_t iFps,
                                                           const std::string& sStart,
                                                           const std::string& sEnd) {
  if (!checkBackup({kRemoteNotConnected, kRemoteBadDate, kRemoteTooLarge}, sStart, sEnd)) {
    return kSizeFailed;
  }
  const std::string sProtocols = offeredProtocols();
  const std::unique_ptr<JParams> pAnswer = callForBackup("rpc_getRecordingSize",
                                                         {{"SourceName", sSource},
                                                          {"Fps", iFps},
                                                          {"TsBackupStartDate", RpcDate(sStart)},
                                                          {"TsBackupEndDate", RpcDate(sEnd)},
                                                          {"SupportedProtocols", sProtocols}},
                                                         kRpcFailed);
  std::int64_t iSize = kSizeUnknown;
  const bool bRead = pAnswer != nullptr && attempt(kRpcFailed, [&] {
                       if (checkRemoteError(*pAnswer)) {
                         pAnswer->get("Size", iSize);
                       }
                     });
  return bRead ? static_cast<std::int32_t>(static_cast<std::uint32_t>(iSize)) : kSizeFailed;
}

std::int32_t StorageAccessController3X4X::remoteCopy(const std::string& sSource, std::int32_t iFps,
                                                     const std::string& sPath, const std::string& sStart,
                                                     const std::string& sEnd) {
  std::unique_ptr<JFileSocket> pFile;
  if (!attempt("Remote Backup Failed: Unable to create backup file (erroneous or inexistant path)",
               [&] { pFile = std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true); })) {
    return kCommandFailed;
  }
  const std::size_t uDot = sPath.rfind('.');
  const std::string sExtension = uDot != std::string::npos ? sPath.substr(uDot) : std::string();
  return runBackup(sSource, iFps, std::move(pFile), sExtension, sPath, sStart, sEnd) ? kCommandFailed : kDone;
}

/// What is copied, in the words of the host.
struct StorageAccessController3X4X::Recording {
  const std::string& sSource;
  std::int32_t iFps;
  const std::string& sStart;
  const std::string& sEnd;
};

/// What the server says of a recording before it is copied.
struct StorageAccessController3X4X::BackupSource {
  std::string sProtocol;
  std::unique_ptr<JParams> pAnswer;
  std::unique_ptr<qm_ci::StreamInfo> pStreamInfo;  ///< null when it comes in the stream
};

bool StorageAccessController3X4X::askForSource(const Recording& recording, BackupSource& source) {
  const std::string sProtocols = offeredProtocols();
  source.pAnswer = callForBackup("rpc_getStreamInfo",
                                 {{"SourceName", recording.sSource},
                                  {"Fps", recording.iFps},
                                  {"TsBackupStartDate", RpcDate(recording.sStart)},
                                  {"TsBackupEndDate", RpcDate(recording.sEnd)},
                                  {"SupportedProtocols", sProtocols}},
                                 kRpcFailed);
  if (!isAccepted(source.pAnswer.get(), kRpcFailed)) {
    return false;
  }
  return attempt("Remote Backup Failed: Stream Info Deserialisation", [&] {
    if (source.pAnswer->get("ProtocolVersion", source.sProtocol)) {
      return;
    }
    source.sProtocol = qm_stream::kRemoteCopyProtocol;
    const qm_stream::StreamProtocol* const pProtocol = qm_stream::findProtocol(source.sProtocol);
    if (pProtocol == nullptr) {
      QM_THROW(JTextError, "invalid procol version");
    }
    pProtocol->readStreamInfo(*source.pAnswer, &source.pStreamInfo);
  });
}

/// The writer of the copy, open when the stream's description is there. `fileParams` become the properties of
/// the file.
std::unique_ptr<FileOutput> StorageAccessController3X4X::openOutput(
    const Recording& recording, const BackupSource& source, std::unique_ptr<JSocket> pOutputSocket,
    const std::string& sExtension, const std::string& sPath, JParams& fileParams) {
  std::unique_ptr<FileOutput> pFileOutput = FileOutput::create(std::move(pOutputSocket), sExtension, sPath);
  if (pFileOutput == nullptr) {
    QM_THROW(JNullPointerError, "pFileOutput");
  }
  setAuthoringApp(*source.pAnswer, pFileOutput->getParams());
  for (const char* szName : {"authoringApp", "Decimation", "StreamInfo"}) {
    fileParams.remove(szName);
  }
  addDate(fileParams, "startTimeStamp", recording.sStart);
  addDate(fileParams, "endTimeStamp", recording.sEnd);
  if (source.pStreamInfo != nullptr) {
    source.pStreamInfo->setNomMaxBitstreamSize(source.pStreamInfo->getMaxFrameSize());
    pFileOutput->open(source.pStreamInfo.get(), &fileParams, nullptr);
  }
  return pFileOutput;
}

bool StorageAccessController3X4X::runBackup(const std::string& sSource, std::int32_t iFps,
                                            std::unique_ptr<JSocket> pOutputSocket, std::string sExtension,
                                            const std::string& sPath, const std::string& sStart,
                                            const std::string& sEnd) {
  const Recording recording{sSource, iFps, sStart, sEnd};
  BackupSource source;
  std::unique_ptr<JTCPSocket> pListener;
  std::unique_ptr<DataReceiver> pReceiver;
  RunningCopy runningCopy(*this);  // gone before what it may abort
  if (!checkBackup({kRemoteNotConnected, kRemoteBadDate, kRemoteTooLarge}, sStart, sEnd) ||
      !askForSource(recording, source)) {
    pOutputSocket.reset();
    deleteBackupFile(sPath);
    return true;
  }
  if (sExtension.empty()) {
    sExtension = extensionFor(source.pStreamInfo.get());
  }
  JParams fileParams(*source.pAnswer);
  std::unique_ptr<FileOutput> pFileOutput;
  if (!attempt("Remote Backup Failed: Unable to create file output", [&] {
        pFileOutput = openOutput(recording, source, std::move(pOutputSocket), sExtension, sPath, fileParams);
      })) {
    deleteBackupFile(sPath);
    return true;
  }
  std::uint16_t uPort = 0;
  if (!attempt("Remote Backup Failed: Unable to open Socket", [&] {
        pListener = std::make_unique<JTCPSocket>(std::uint16_t{0});
        uPort = pListener->getLocalPort();
        pReceiver = std::make_unique<DataReceiver>(*pListener, source.sProtocol, m_iTimeOut,
                                                   std::move(pFileOutput), sExtension, sPath, m_client,
                                                   source.pStreamInfo == nullptr ? &fileParams : nullptr);
        pReceiver->start();
      })) {
    pReceiver.reset();
    pFileOutput.reset();
    deleteBackupFile(sPath);
    return true;
  }
  runningCopy.setReceiver(*pReceiver);
  const bool bCopied = pull(recording, source.sProtocol, uPort, *pReceiver);
  if (pReceiver->getFramesWritten() == 0) {
    deleteBackupFile(sPath);
  }
  return !bCopied;
}

/// Lets the server push to a port and waits for the receiver's end. Whether all went well; else it is
/// reported. When the call fails, what the receiver has to say doesn't matter.
bool StorageAccessController3X4X::pull(const Recording& recording, const std::string& sProtocol,
                                       std::uint16_t uPort, DataReceiver& receiver) {
  const std::unique_ptr<JParams> pAnswer = callForBackup("rpc_remoteCopy",
                                                         {{"SourceName", recording.sSource},
                                                          {"Fps", recording.iFps},
                                                          {"TsBackupStartDate", RpcDate(recording.sStart)},
                                                          {"TsBackupEndDate", RpcDate(recording.sEnd)},
                                                          {"BackupPort", std::int32_t{uPort}},
                                                          {"WithAuthentication", true},
                                                          {"ProtocolVersion", sProtocol}},
                                                         kRpcFailed);
  const bool bAccepted = isAccepted(pAnswer.get(), kRpcFailed);
  if (!bAccepted) {
    receiver.cancel();  // no connection will come
  }
  receiver.stop();
  receiver.cancel();
  if (pAnswer != nullptr && receiver.hasError()) {
    const JAutoLock lock(m_mutex);
    push("%s", receiver.getError().c_str());
  }
  return bAccepted && !receiver.hasError();
}

std::int32_t StorageAccessController3X4X::remoteCopyToProcess(
    const std::string& sSource, std::int32_t iFps, const std::string& sFormat,
    const std::string& sCommandLine, const char* const* ppEnvironment, const std::string& sStart,
    const std::string& sEnd, std::string* pOutput, std::string* pError, std::int32_t& iTerminationStatus) {
  JProcessPipe process(true, true, true);
  if (!attempt("Remote Backup Failed: Unable to create process",
               [&] { process.exec(sCommandLine, ppEnvironment); })) {
    return kCommandFailed;
  }
  std::unique_ptr<SocketReader> pOutputReader;
  std::unique_ptr<SocketReader> pErrorReader;
  if (!attempt("Remote Backup Failed: Unable to create standard output reader", [&] {
        pOutputReader = std::make_unique<SocketReader>(*process.getStdout(), pOutput == nullptr);
      })) {
    return kCommandFailed;
  }
  if (!attempt("Remote Backup Failed: Unable to create standard error reader", [&] {
        pErrorReader = std::make_unique<SocketReader>(*process.getStderr(), pError == nullptr);
      })) {
    endChild(process);  // the first reader waits for that
    return kCommandFailed;
  }
  const bool bFailed = runBackup(sSource, iFps, process.takeStdin(), sFormat, std::string(), sStart, sEnd);
  if (!attempt("Remote Backup Failed: Error while waiting for the process to terminate",
               [&] { iTerminationStatus = process.wait(false, true); })) {
    return kCommandFailed;
  }
  if (pOutput != nullptr) {
    *pOutput = pOutputReader->getText();
  }
  if (pError != nullptr) {
    *pError = pErrorReader->getText();
  }
  return bFailed ? kCommandFailed : kDone;
}
