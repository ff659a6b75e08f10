#include "qmactivexctrl/qmstorageaccesscontroller/DataReceiver.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <span>
#include <strings.h>
#include <utility>

#include "coreapi/qmci/asserted.h"
#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/streamfactory.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpc.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

using qm_ci::Bitstream;
using qm_stream::IFrameSocket;
using qm_stream::RemoteCopyFrameHeader;

namespace {

constexpr std::int32_t kDefaultTimeOut = 5000;

/// How often the wait for the connection looks at the link.
constexpr std::int32_t kLinkWatchMilliseconds = 200;

/// First size of the frame buffer where the description comes in the stream.
constexpr std::uint32_t kFirstFrameSize = 4096;

/// The largest description that is taken from a stream: XML text has this limit.
constexpr std::uint32_t kMaxDescriptionSize = 256 * 1024;

/// What a frame's payload shares its buffer with: the table of a record with one packet, and the part of a
/// long header that lands behind the first 48 bytes or, in a remote copy, the header of the frame.
constexpr std::uint32_t kBesidePayload =
    qm_ci::bitstream_layout::packetData(1) +
    (Bitstream::m_uMaxQMCIBitstreamSize - Bitstream::m_uMinQMCIBitstreamSize);

constexpr const char* kHostDown = "Remote Backup Failed: Remote host must be down";
constexpr const char* kCancelled = "Remote Backup Failed: Cancelled";
constexpr const char* kLinkDown = "Remote Backup Failed: QMService link down";
constexpr const char* kNoInput = "Remote Backup Failed: Couldn't create input socket";
constexpr const char* kNoDisk = "Remote Backup Failed: Couldn't write received field on disk";

void logCaught(const JError& error) {
  JCATCH_LOG(&error);
  qm_err::log(qm_err::kLogError, "Remote Backup Failed: '%s'", error.getMessage().c_str());
}

}  // namespace

StorageAccessController3X4X::DataReceiver::DataReceiver(JTCPSocket& listener, std::string sProtocol,
                                                        std::int32_t iTimeOut,
                                                        std::unique_ptr<FileOutput> pOutput,
                                                        std::string sExtension, std::string sPath,
                                                        JRPCClient& client, const JParams* pFileParams)
    : JThread("DataReceiver"),
      m_pListener(&listener),
      m_sProtocol(std::move(sProtocol)),
      m_timeOut(iTimeOut),
      m_pOutput(std::move(pOutput)),
      m_sExtension(std::move(sExtension)),
      m_sPath(std::move(sPath)),
      m_pClient(&client),
      m_pFileParams(pFileParams) {}

StorageAccessController3X4X::DataReceiver::~DataReceiver() {
  stop();
}

void StorageAccessController3X4X::DataReceiver::cancel() {
  const JAutoLock lock(m_mutex);
  m_pListener->close();
}

void StorageAccessController3X4X::DataReceiver::abort() noexcept {
  const JAutoLock lock(m_mutex);
  m_bAborted = true;
  m_pListener->close();
  if (m_pInput != nullptr) {
    m_pInput->close();
  }
}

/// Tells what is read from; null for nothing any more.
void StorageAccessController3X4X::DataReceiver::setInput(IFrameSocket* pInput) {
  const JAutoLock lock(m_mutex);
  m_pInput = pInput;
  if (m_bAborted && m_pInput != nullptr) {
    m_pInput->close();
  }
}

void StorageAccessController3X4X::DataReceiver::record(const char* szError) {
  m_bError = true;
  m_sError = szError;
}

void StorageAccessController3X4X::DataReceiver::run() {
  JSocket::startup();
  try {
    if (std::unique_ptr<JSocket> pAccepted = acceptConnection()) {
      receive(std::move(pAccepted));
    } else if (m_bAborted) {
      record(kCancelled);
    }
  } catch (const std::exception& exception) {
    logCaught(JTextError("%s", exception.what()));
    record(kHostDown);
  }
  m_pOutput.reset();
  if (m_bUnfinished && !m_bError) {
    record(kNoDisk);
  }
  JSocket::cleanup();
}

/// Waits for the server's connection as long as the link stands. Null when there is none: the wait was
/// cancelled or has failed, which isn't this thread's failure, or the link is down, which is.
std::unique_ptr<JSocket> StorageAccessController3X4X::DataReceiver::acceptConnection() {
  m_pListener->setAcceptTimeout(kLinkWatchMilliseconds);
  for (;;) {
    try {
      return m_pListener->accept();
    } catch (JTimeoutError* pError) {
      const qm_err::CaughtError error(pError);
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
      return nullptr;
    }
    if (!m_pClient->isConnected()) {
      record(kLinkDown);
      return nullptr;
    }
  }
}

/// The protocol's receiver around the connection; null when there is none.
std::unique_ptr<IFrameSocket> StorageAccessController3X4X::DataReceiver::wrap(
    std::unique_ptr<JSocket> pAccepted) const {
  const qm_stream::StreamProtocol* const psProtocol = qm_stream::findProtocol(m_sProtocol);
  if (!qm_ci::asserted(psProtocol != nullptr, "psProtocol")) {
    return nullptr;
  }
  try {
    JParams params;
    params.add("MTU", static_cast<std::int32_t>(pAccepted->getMTU()));
    params.add("SessionId", -1);
    params.add("Multicast", false);
    params.add("DisconnectId", -1);
    std::string sParams;
    params.toText(sParams);
    return psProtocol->createISocket(std::move(pAccepted), nullptr, sParams, nullptr,
                                     JTraceableObject::kDefaultName);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return nullptr;
  }
}

void StorageAccessController3X4X::DataReceiver::receive(std::unique_ptr<JSocket> pAccepted) {
  pAccepted->setReadTimeout(m_timeOut < 0 ? kDefaultTimeOut : m_timeOut);
  std::unique_ptr<IFrameSocket> apIRCPYSocket = wrap(std::move(pAccepted));
  if (!qm_ci::asserted(apIRCPYSocket != nullptr, "apIRCPYSocket.get()")) {
    record(kNoInput);
    return;
  }
  setInput(apIRCPYSocket.get());
  const bool bTimedOut = receiveFrames(*apIRCPYSocket);
  setInput(nullptr);
  apIRCPYSocket.reset();  // the server waits for that
  const JAutoLock lock(m_mutex);
  if (m_timeOut < 0 && bTimedOut) {
    m_pClient->closeConnection();
  }
}

/// The frames to the end of the stream or to a failure, which is recorded. Whether the server was too slow.
bool StorageAccessController3X4X::DataReceiver::receiveFrames(IFrameSocket& input) {
  try {
    const bool bRemoteCopy = m_sProtocol == qm_stream::kRemoteCopyProtocol;
    if (!prepareFrameBuffer()) {
      return false;
    }
    for (;;) {
      const Pass pass = bRemoteCopy ? readCopiedFrame(input) : readFrame(input);
      if (pass == Pass::kEnd) {
        return false;
      }
      if (pass == Pass::kDescription) {
        continue;
      }
      if (!writeFrame()) {
        return false;
      }
      if (m_bAborted) {  // what had been received ahead isn't written any more
        record(kCancelled);
        return false;
      }
      if (!m_pClient->isConnected()) {
        record(kLinkDown);
        return false;
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    logCaught(*error);
    record(m_bAborted ? kCancelled : kHostDown);
    return strcasecmp(error->getMessage().c_str(), "Time out!") == 0;
  } catch (const std::exception& exception) {
    logCaught(JTextError("%s", exception.what()));
    record(kHostDown);
    return false;
  }
}

/// Makes room for the first frame. False when a remote copy has no description that says how much.
bool StorageAccessController3X4X::DataReceiver::prepareFrameBuffer() {
  m_oBsHdr.setMaxSize(Bitstream::m_uMaxQMCIBitstreamSize, qm_ci::QMCI_FMT_NONE, 1);
  if (m_sProtocol != qm_stream::kRemoteCopyProtocol) {
    m_oBs.setMaxSize(kFirstFrameSize, qm_ci::QMCI_FMT_NONE, 1);
    return true;
  }
  const FileStreamInfo* const pStream = std::as_const(*m_pOutput).getFileInfo().getStream(1);
  const qm_ci::StreamInfo* const pStreamInfo = pStream != nullptr ? pStream->getStreamInfo() : nullptr;
  if (pStreamInfo == nullptr) {
    record(kNoInput);
    return false;
  }
  allocateFrame(pStreamInfo->getMaxFrameSize());
  return true;
}

/// Makes the frame's buffer large enough for so much payload, within the limit of all frames.
void StorageAccessController3X4X::DataReceiver::allocateFrame(std::uint32_t uPayload) {
  const std::uint32_t uSize = std::min(uPayload, qm_stream::kMaxFrameSize) + kBesidePayload;
  if (m_oBs.getAllocatedSize() < uSize) {
    // Unlike a record without format it isn't cleared, so that memory follows what arrives, not what is
    // claimed.
    m_oBs.setMaxSize(uSize, qm_ci::QMCI_FMT_PACKET, 1);
  }
}

/// The room for the next frame's payload.
qm_ci::PacketSpace StorageAccessController3X4X::DataReceiver::nextSpace() {
  if (!m_oBs.setFormat(qm_ci::QMCI_FMT_PACKET, 1)) {
    QM_THROW(JBufferSizeError);
  }
  const qm_ci::PacketSpace sSubstream = m_oBs.allocNextPacket();
  if (sSubstream.pBuf == nullptr) {
    QM_THROW(JBufferSizeError);
  }
  return sSubstream;
}

StorageAccessController3X4X::DataReceiver::Pass StorageAccessController3X4X::DataReceiver::readCopiedFrame(
    IFrameSocket& input) {
  const qm_ci::PacketSpace sSubstream = nextSpace();
  RemoteCopyFrameHeader oRcHdr;
  JIoBuf ioArray[] = {{oRcHdr.data(), RemoteCopyFrameHeader::kSize}, {sSubstream.pBuf, sSubstream.nLength}};
  const std::size_t dwReadBytes = input.readv(ioArray, std::size(ioArray));
  const std::uint32_t dwFrameSize = oRcHdr.getFrameSize();
  if (dwFrameSize == 0) {
    return Pass::kEnd;
  }
  qm_ci::asserted(dwReadBytes <= ioArray[1].bufLength, "dwReadBytes<=ioArray[1].bufLength");
  qm_ci::asserted(dwReadBytes == dwFrameSize + RemoteCopyFrameHeader::kSize,
                  "dwReadBytes==oRcHdr.dwFrameSize+sizeof(RemoteCopyFrameHeader)");
  constexpr std::uint16_t kAccessPoint = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;
  std::uint16_t wAccessFlags = oRcHdr.isAccessPoint() ? kAccessPoint : 0;
  std::uint16_t wPictureType = 0;
  if (oRcHdr.isAuthentication()) {
    wAccessFlags = kAccessPoint | qm_ci::kAccessBit3;
    wPictureType = qm_ci::withFrameKind(0, qm_ci::kFrameKindAuthentication);
  }
  m_oBs.setAccessFlags(wAccessFlags);
  m_oBs.setTimestamp(oRcHdr.getTimeStamp());
  m_oBs.setFrameNumber(oRcHdr.getFrameNumber());
  m_oBs.setPictureType(wPictureType);
  if (!m_oBs.setPacketLength(dwFrameSize, -1)) {
    QM_THROW(JBufferSizeError);
  }
  return Pass::kFrame;
}

StorageAccessController3X4X::DataReceiver::Pass StorageAccessController3X4X::DataReceiver::readFrame(
    IFrameSocket& input) {
  const std::uint32_t uFrame = input.getNextFrameSize();
  qm_ci::PacketSpace sSubstream = nextSpace();
  const bool bLarger = uFrame > Bitstream::m_uMinQMCIBitstreamSize + sSubstream.nLength;
  if (bLarger && uFrame <= kMaxDescriptionSize + Bitstream::m_uMaxQMCIBitstreamSize) {
    allocateFrame(uFrame);  // for a description, which nothing has promised
    sSubstream = nextSpace();
  }
  JIoBuf ioArray[] = {{m_oBsHdr.getQMCIBitstreamPtr(), Bitstream::m_uMinQMCIBitstreamSize},
                      {sSubstream.pBuf, sSubstream.nLength}};
  const std::size_t dwReadBytes = input.readv(ioArray, std::size(ioArray));
  if (dwReadBytes == 0) {
    return Pass::kEnd;
  }
  const std::uint32_t uPayload = takeHeader(dwReadBytes, ioArray, sSubstream);
  const bool bDescription =
      qm_ci::getFrameKind(m_oBsHdr.getPictureType()) == qm_ci::kFrameKindStreamInfo || m_bFirstPacket;
  if (bDescription) {
    takeDescription(sSubstream.pBuf, uPayload);
    return Pass::kDescription;
  }
  if (bLarger) {
    QM_THROW(JBufferSizeError);
  }
  if (!m_oBs.copyHeader(m_oBsHdr) || !m_oBs.setPacketLength(uPayload, -1)) {
    QM_THROW(JTextError, "frame of another format");
  }
  return Pass::kFrame;
}

/// Brings a frame's header into local order, drops what a longer one has at its end, and moves the payload,
/// whose bytes it returns, to the start of its room.
std::uint32_t StorageAccessController3X4X::DataReceiver::takeHeader(std::size_t uRead,
                                                                    const JIoBuf (&ioArray)[2],
                                                                    const qm_ci::PacketSpace& space) {
  constexpr std::uint32_t kLeast = Bitstream::m_uMinQMCIBitstreamSize;
  QMCIBitstream* const pHeader = m_oBsHdr.getQMCIBitstreamPtr();
  if (uRead < kLeast || !qm_ci::ntoh(pHeader)) {
    QM_THROW(JTextError, "no bitstream header");
  }
  m_oBsHdr.setAllocatedSize(Bitstream::m_uMaxQMCIBitstreamSize);
  const std::uint32_t uLength = m_oBsHdr.getHeaderLength();
  if (!qm_ci::asserted(uLength <= Bitstream::m_uMaxQMCIBitstreamSize,
                       "oBsHdr.getHeaderLength()<=qm_ci::Bitstream::m_uMaxQMCIBitstreamSize")) {
    QM_THROW(JTextError, "Bitstream header too large!");
  }
  if (uLength < kLeast || uLength > uRead) {
    QM_THROW(JTextError, "bitstream header of %u bytes in a frame of %zu", uLength, uRead);
  }
  const auto uPayload = static_cast<std::uint32_t>(uRead - uLength);
  if (const std::uint32_t nXs = uLength - kLeast; nXs != 0) {
    qm_ci::asserted(ioArray[1].bufLength + nXs <= space.nLength,
                    "ioArray[1].bufLength+nXs<=sSubstream.nLength");
    qm_ci::asserted(ioArray[0].bufLength + ioArray[1].bufLength == uRead,
                    "ioArray[0].bufLength+ioArray[1].bufLength==dwReadBytes");
    std::memcpy(pHeader + kLeast, space.pBuf, nXs);
    std::memmove(space.pBuf, space.pBuf + nXs, uPayload);
  }
  return uPayload;
}

/// Takes a description in the form in which it travels: the first one opens the output, each later one begins
/// the next file.
void StorageAccessController3X4X::DataReceiver::takeDescription(std::uint8_t* pPayload,
                                                                std::uint32_t uPayload) {
  qm_ci::asserted(m_oBsHdr.getFormat() == qm_ci::QMCI_FMT_PACKET, "oBsHdr.getFormat()==QMCI_FMT_PACKET");
  const std::span<std::uint8_t> bytes(pPayload, uPayload);
  qm_ci::swapStreamInfo(bytes);
  qm_ci::StreamInfo streamInfo(bytes);
  const std::uint32_t uMaxFrameSize = streamInfo.getMaxFrameSize();
  streamInfo.setNomMaxBitstreamSize(uMaxFrameSize);
  if (std::exchange(m_bFirstPacket, false)) {
    m_pOutput->open(&streamInfo, m_pFileParams, nullptr);
  } else {
    beginNextFile(streamInfo);
  }
  allocateFrame(uMaxFrameSize);
}

void StorageAccessController3X4X::DataReceiver::beginNextFile(const qm_ci::StreamInfo& streamInfo) {
  const std::string sName =
      m_sPath.substr(0, m_sPath.rfind('.')) + std::to_string(m_segment + 1) + m_sExtension;
  auto pFile = std::make_unique<JFileSocket>(sName, JFileSocket::kWrite, true);
  std::unique_ptr<FileOutput> pNext;
  try {
    pNext = FileOutput::create(std::move(pFile), m_sExtension, sName);
    if (pNext == nullptr) {
      QM_THROW(JNullPointerError, "pFileOutput");
    }
    pNext->getParams() = m_pOutput->getParams();
    pNext->open(&streamInfo, m_pOutput->getStreamParams(1), nullptr);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    pNext.reset();
    deleteBackupFile(sName);
    error.rethrow();
  }
  m_pOutput = std::move(pNext);
  ++m_segment;
}

bool StorageAccessController3X4X::DataReceiver::writeFrame() {
  try {
    m_pOutput->writeBitstream(1, m_oBs, 0, 0);
    ++m_framesWritten;
    // A child says itself, by its status, what it makes of its input; a file with nothing but authentication
    // has no index to end with.
    if (!m_sPath.empty() && qm_ci::getFrameKind(m_oBs.getPictureType()) != qm_ci::kFrameKindAuthentication) {
      m_pOutput->tellUnfinished(&m_bUnfinished);
    }
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    logCaught(*error);
  }
  record(kNoDisk);
  return false;
}
