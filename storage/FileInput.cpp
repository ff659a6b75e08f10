#include "storage/FileInput.h"

#include <algorithm>
#include <array>
#include <limits>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/thread/namedassert.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/filekinds.h"
#include "storage/fileread.h"

namespace {

/// The largest frame of a stream whose description doesn't tell.
constexpr std::uint32_t kLargestFrame = 64U << 20;

constexpr std::uint64_t kMicrosecondsPerMillisecond = 1000;

/// The highest number of a frame that periods are taken for: numbers in indexes have 32 bits.
constexpr std::uint64_t kMostFrames = std::numeric_limits<std::uint32_t>::max();

/// Types of the sequential form.
constexpr int kFindType = 0;
constexpr int kAsfType = 1;
constexpr int kAviType = 3;

/// a x b / c without overflow on the way; the largest number when the result has more than 64 bits.
std::uint64_t scaled(std::uint64_t a, std::uint64_t b, std::uint64_t c, bool bUp) noexcept {
  __extension__ using Wide = unsigned __int128;
  const Wide result = (Wide{a} * b + (bUp ? c - 1 : 0)) / c;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  return result > kMost ? kMost : static_cast<std::uint64_t>(result);
}

}  // namespace

FileInput::FileInput(std::unique_ptr<JISocket> pSocket, FileInfo& fileInfo)
    : m_pFileInfo(&fileInfo),
      m_pSocket(std::move(pSocket)),
      m_pFile(dynamic_cast<JFileSocket*>(m_pSocket.get())),
      m_lastNumbers(fileInfo.getStreamCount(), -1) {
  for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
    const qm_ci::StreamInfo* const pStreamInfo = fileInfo.getStream(uStream)->getStreamInfo();
    const std::uint32_t uLargest = pStreamInfo != nullptr ? pStreamInfo->getMaxFrameSize() : 0;
    m_largestFrames.push_back(uLargest != 0 ? uLargest : kLargestFrame);
  }
}

FileInput::~FileInput() {
  if (m_bInfoShared) {
    m_pFileInfo->endUse();
  }
}

void FileInput::share() {
  m_pFileInfo->beginUse();
  m_bInfoShared = true;
}

std::unique_ptr<FileInput> FileInput::over(FileInfo::Ptr pFileInfo, std::unique_ptr<JISocket> pSocket,
                                           bool bLoop) {
  auto pInput = pFileInfo->makeInput(std::move(pSocket));
  pInput->m_pOwned = std::move(pFileInfo);
  pInput->setLoop(bLoop);
  return pInput;
}

bool FileInput::isValid(const std::string& sName) {
  try {
    if (!create(std::make_unique<JFileSocket>(sName, JFileSocket::kRead, true), false, sName)) {
      QM_THROW(JTextError, "unknown error");
    }
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return false;
  }
}

std::unique_ptr<FileInput> FileInput::create(std::unique_ptr<JFileSocket> pSocket, bool bLoop,
                                             const std::string& sName) {
  FileInfo::Ptr pFileInfo = FileInfo::create(*pSocket, sName, false);
  if (!pFileInfo) {
    return nullptr;
  }
  return over(std::move(pFileInfo), std::move(pSocket), bLoop);
}

std::unique_ptr<FileInput> FileInput::create(std::unique_ptr<JISocket> pSocket, bool bLoop, int iType) {
  std::array<std::uint8_t, file_kinds::kMagicSize> magic{};
  std::span<const std::uint8_t> front;
  if (iType == kFindType) {
    if (qm_utils::readFully(*pSocket, magic.data(), magic.size()) != magic.size()) {
      return nullptr;
    }
    front = magic;
    const std::uint32_t uMagic = qm_platform::readLE32(magic.data());
    iType = uMagic == file_kinds::kAsfMagic ? kAsfType : uMagic == file_kinds::kRiffMagic ? kAviType : -1;
  }
  FileHeadReader reader(*pSocket, front);
  FileInfo::Ptr pFileInfo;
  if (iType == kAsfType) {
    pFileInfo.reset(new ASFFileInfoIn(reader, {}));
  } else if (iType == kAviType) {
    pFileInfo.reset(new AVIFileInfo(reader, {}));
  } else {
    return nullptr;
  }
  return over(std::move(pFileInfo), std::move(pSocket), bLoop);
}

int FileInput::seekFrame(std::uint32_t /*uStream*/, std::uint32_t /*uNumber*/, std::uint32_t* /*pSize*/,
                         qm_ci::Bitstream* /*pBitstream*/, bool /*bToKeyFrame*/) {
  QM_ASSERT_AS(false, "FileInput::seekFrame()");
  return kFailed;
}

int FileInput::seekTime(std::uint32_t /*uStream*/, std::uint32_t* /*pSize*/, JTime /*time*/,
                        qm_ci::Bitstream* /*pBitstream*/, bool /*bToKeyFrame*/) {
  QM_ASSERT_AS(false, "FileInput::seekTime()");
  return kFailed;
}

int FileInput::readNextFrame(std::uint32_t& uStream, qm_ci::Bitstream& frame, bool bKeepAuthentication) {
  std::uint32_t uSize = 0;
  if (frame.getQMCIBitstreamPtr() == nullptr) {
    frame.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
  }
  const int iResult = getNextFrame(&uStream, &uSize, &frame, bKeepAuthentication);
  return iResult < 0 || readPayload(uSize, frame) ? iResult : static_cast<int>(kFailed);
}

bool FileInput::readPayload(std::uint32_t uSize, qm_ci::Bitstream& frame) {
  const std::uint64_t uNeeded = qm_ci::bitstream_layout::packetData(1) + uSize;
  if (uNeeded > frame.getAllocatedSize()) {
    // The header moves to a record that is large enough.
    qm_ci::Bitstream header;
    header.setMaxSize(qm_ci::Bitstream::m_uMinQMCIBitstreamSize, qm_ci::QMCI_FMT_NONE, 0);
    header.copyHeader(frame);
    frame.setMaxSize(uSize, qm_ci::QMCI_FMT_PACKET, 1);
    frame.copyHeader(header);
  }
  frame.setFormat(qm_ci::QMCI_FMT_PACKET, 1);
  if (uSize == 0) {
    return frame.setPacketData(nullptr, 0, 0);
  }
  const qm_ci::PacketSpace space = frame.allocNextPacket();
  if (uSize > space.nLength || read(space.pBuf, uSize) != uSize) {
    return false;
  }
  return frame.setPacketLength(uSize, -1);
}

std::int64_t FileInput::getLastNumber(std::uint32_t uStream) const {
  return uStream >= 1 && uStream <= m_lastNumbers.size() ? m_lastNumbers[uStream - 1] : -1;
}

void FileInput::setLastNumber(std::uint32_t uStream, std::int64_t iNumber) {
  m_lastNumbers.at(uStream - 1) = iNumber;
}

void FileInput::resetLastNumbers() {
  std::fill(m_lastNumbers.begin(), m_lastNumbers.end(), -1);
}

bool FileInput::isFrameValid(std::uint32_t uStream, std::uint32_t uSize) const {
  if (uStream >= 1 && uStream <= m_largestFrames.size() && uSize <= m_largestFrames[uStream - 1]) {
    return true;
  }
  qm_err::log(qm_err::kLogError, "Invalid frame header in file %s: stream number=%i, frame size=%u bytes\n",
              getFileName().c_str(), static_cast<int>(uStream), uSize);
  return false;
}

void FileInput::checkSingleStream(std::uint32_t uStream) {
  if (uStream != 1) {
    QM_THROW(EndOfFileError);
  }
}

std::uint64_t FileInput::timeByPeriod(std::uint32_t uStream, std::uint64_t uNumber, Rounding rounding) const {
  const FileStreamInfo& stream = *m_pFileInfo->getStream(uStream);
  const FramePeriod period = stream.getPeriod();
  const std::uint64_t ullFirst = stream.getFirstDate().getMicroseconds();
  if (period.uDenominator == 0) {
    return ullFirst;
  }
  const std::uint64_t ullSince = scaled(uNumber, kMicrosecondsPerMillisecond * period.uNumerator,
                                        period.uDenominator, rounding == Rounding::kUp);
  return ullFirst + std::min(ullSince, std::numeric_limits<std::uint64_t>::max() - ullFirst);
}

std::uint64_t FileInput::numberByPeriod(std::uint32_t uStream, std::uint64_t ullTime) const {
  const FileStreamInfo& stream = *m_pFileInfo->getStream(uStream);
  const FramePeriod period = stream.getPeriod();
  const std::uint64_t ullFirst = stream.getFirstDate().getMicroseconds();
  if (period.uNumerator == 0 || ullTime < ullFirst) {
    return 0;
  }
  return scaled(ullTime - ullFirst, period.uDenominator, kMicrosecondsPerMillisecond * period.uNumerator,
                false);
}

void FileInput::moveOthersTo(std::uint32_t uStream, std::uint64_t ullTime, std::uint64_t ullPosition) {
  for (std::uint32_t uOther = 1; uOther <= m_pFileInfo->getStreamCount(); ++uOther) {
    if (uOther == uStream) {
      continue;
    }
    const FileStreamInfo& other = *m_pFileInfo->getStream(uOther);
    // An index that is still empty has no frame in front of this one.
    if (other.hasTimes() || (index_layout::isTimed(other.getIndexType()) && other.getCount() == 0)) {
      std::int64_t iNumber = other.getNumberAtOrBefore(JTime::fromMicroseconds(ullTime));
      while (iNumber >= 0) {
        const auto entry = other.getEntry(static_cast<std::uint32_t>(iNumber));
        if (!entry || (entry->ullPosition & ~index_layout::kKeyFrame) < ullPosition) {
          break;
        }
        --iNumber;
      }
      setLastNumber(uOther, iNumber);
    } else {
      setLastNumber(uOther, std::min<std::uint64_t>(numberByPeriod(uOther, ullTime), kMostFrames));
    }
  }
}
