#include "storage/FileOutput.h"

#include <algorithm>
#include <utility>

#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/ASFIO/ASFOutput.h"
#include "storage/AVIIO/AVIOutput.h"
#include "storage/MP3/MP3Output.h"
#include "storage/WAVEIO/WAVEOutput.h"

namespace {

char toLower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::unique_ptr<FileOutput> FileOutput::create(std::unique_ptr<JSocket> pSocket, std::string_view sType,
                                               const std::string& sFileName) {
  if (!pSocket) {
    QM_THROW(JNullPointerError, "socket");
  }
  std::string sExtension(sType.substr(sType.rfind('.') + 1));
  std::transform(sExtension.begin(), sExtension.end(), sExtension.begin(), toLower);
  if (sExtension == "asf" || sExtension == "asfv2") {
    return std::make_unique<ASFOutput>(std::move(pSocket), sFileName);
  }
  if (sExtension == "avi") {
    return std::make_unique<AVIOutput>(std::move(pSocket), sFileName);
  }
  if (sExtension == "mp3") {
    return std::make_unique<MP3Output>(std::move(pSocket), sFileName);
  }
  if (sExtension == "wav") {
    return std::make_unique<WAVEOutput>(std::move(pSocket), sFileName);
  }
  return nullptr;
}

FileOutput::FileOutput(std::unique_ptr<JSocket> pSocket, std::unique_ptr<FileInfo> pFileInfo)
    : m_poSocket(std::move(pSocket)), m_poFileInfo(std::move(pFileInfo)), m_writer(*m_poSocket) {}

FileOutput::~FileOutput() {
  finishing([this] {
    m_poSocket->close();
    const auto* const pFile = dynamic_cast<const JFileSocket*>(m_poSocket.get());
    if (pFile != nullptr && pFile->hasCloseFailed()) {
      QM_THROW(JTextError, "the file couldn't be closed");
    }
  });
  if (m_bFileInfoDetached) {
    m_poFileInfo.release()->setOnFlyIndexing(false);
  }
}

void FileOutput::start(const FileAttributes* pAttributes) {
  if (pAttributes != nullptr) {
    m_poFileInfo->getAttributes() = *pAttributes;
  }
  m_bStarted = true;
}

void FileOutput::open(const qm_ci::StreamInfo* pStreamInfo, const JParams* pParams,
                      const FileAttributes* pAttributes) {
  if (pStreamInfo != nullptr) {
    const std::uint32_t uStreamNumber = addStream(*pStreamInfo);
    JParams* const pStreamParams = getStreamParams(uStreamNumber);
    if (pParams != nullptr && pStreamParams != nullptr) {
      pStreamParams->merge(*pParams);
    }
  }
  start(pAttributes);
}

JParams* FileOutput::getStreamParams(std::uint32_t /*uStreamNumber*/) {
  return nullptr;
}

void FileOutput::writeBitstream(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                                std::uint32_t uTime, std::uint32_t uReserved) {
  using qm_ci::QMCI_FMT_PACKET;
  QM_ASSERT_AS(uStreamNumber >= 1, "uStreamNumber>=1");
  QM_ASSERT_AS(oCIBitstream.getFormat() == QMCI_FMT_PACKET, "oCIBitstream.getFormat() == QMCI_FMT_PACKET");
  QM_ASSERT_AS(oCIBitstream.getNbPackets() == 1, "oCIBitstream.getNbPackets() == 1");
  writeFrame(uStreamNumber, oCIBitstream, uTime, uReserved);
}

std::uint64_t FileOutput::getPosition() const {
  return 0;
}

FileInfo* FileOutput::detachFileInfo() noexcept {
  m_bFileInfoDetached = true;
  return m_poFileInfo.get();
}

bool FileOutput::isCounted(const qm_ci::ConstBitstream& oCIBitstream) noexcept {
  return qm_ci::getFrameKind(oCIBitstream.getPictureType()) != qm_ci::kFrameKindAuthentication;
}

void FileOutput::account(std::uint32_t uStreamNumber, std::uint64_t uPosition,
                         const qm_ci::ConstBitstream& oCIBitstream) {
  if (!isCounted(oCIBitstream)) {
    return;
  }
  const std::uint64_t ullTimeStamp = oCIBitstream.getTimestamp();
  QM_ASSERT_AS(ullTimeStamp != 0, "oCIBitstream.getTimestamp()!=0");
  const JAutoLock lock(m_poFileInfo->getMutex());
  FileStreamInfo* const pStream = m_poFileInfo->getStream(uStreamNumber);
  if (pStream == nullptr) {
    return;
  }
  const std::uint32_t uCount = pStream->getCount();
  if (ullTimeStamp != 0) {
    const JTime time = JTime::fromMicroseconds(ullTimeStamp);
    if (uCount == 0) {
      pStream->setFirstDate(time);
    }
    pStream->setLastDate(time);
  }
  m_poFileInfo->addCIEntry(uStreamNumber, uCount, uPosition, oCIBitstream);
}

JIoBuf FileOutput::payloadOf(const qm_ci::ConstBitstream& oCIBitstream) noexcept {
  const qm_ci::Packet packet = oCIBitstream.getPacket(0);
  // A write never changes what a buffer points to.
  return {const_cast<std::uint8_t*>(packet.pBuf), packet.pBuf != nullptr ? packet.nLength : 0};
}

void FileOutput::checkNotStarted() const {
  if (m_bStarted) {
    QM_THROW(JTextError, "the file is started already");
  }
}

void FileOutput::checkStream(std::uint32_t uStreamNumber) const {
  if (!m_bStarted) {
    QM_THROW(JTextError, "the file isn't started");
  }
  const FileStreamInfo* const pStream = m_poFileInfo->getStream(uStreamNumber);
  if (pStream == nullptr || pStream->getStreamInfo() == nullptr) {
    QM_THROW(JTextError, "the file has no stream %u", uStreamNumber);
  }
}
