#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/largeblock.h"
#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "storage/MP3/MP3FileInfo.h"
#include "storage/MP3/MP3Input.h"
#include "storage/MP3/mp3format.h"
#include "storage/fileread.h"
#include "storage/mpegheader.h"

using namespace mp3_layout;
using qm_platform::readLE32;

namespace {

constexpr std::uint16_t kBits = 16;

/// What a frame's record has beside its payload.
constexpr std::uint32_t kFrameOverhead = 72;

constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
constexpr std::uint16_t kKeyFrameFlags = qm_ci::kAccessBit0 | qm_ci::kAccessBit1;

/// The largest parameter texts that are looked at.
constexpr std::uint32_t kMaxParams = 1U << 20;

/// Rates of MPEG 1; lower ones belong to its successors, whose frames have half as many samplings.
constexpr std::uint32_t kLowestFullRate = 32000;

/// Fills a buffer from a place in the file.
bool readAt(JFileSocket& socket, std::uint64_t ullPlace, void* pBuffer, std::size_t uSize) {
  socket.seek(static_cast<std::int64_t>(ullPlace), JFileSocket::kStart);
  return qm_utils::readFully(socket, pBuffer, uSize) == uSize;
}

/// The word behind a mark that ends at a place; false when the mark isn't there.
bool findMark(JFileSocket& socket, std::uint64_t ullEnd, std::string_view sMark, std::uint32_t& uWord) {
  std::uint8_t block[kMarkBlockSize];
  if (ullEnd <= kMarkBlockSize || !readAt(socket, ullEnd - kMarkBlockSize, block, sizeof block) ||
      std::memcmp(block, sMark.data(), kMarkSize) != 0) {
    return false;
  }
  uWord = readLE32(block + kMarkSize);
  return true;
}

}  // namespace

MP3FileInfo::MP3FileInfo(JFileSocket& socket, const std::string& sName, bool bMapIndex) : FileInfo(sName) {
  std::uint8_t header[kMPEGHeaderSize];
  if (qm_utils::readFully(socket, header, sizeof header) != sizeof header) {
    QM_THROW(JTextError, "not an mp3 file");
  }
  m_uTypeMagic = readLE32(header);
  resetStreams(1);
  getStream(1)->setIndexType(FILEINDEX_NTP);
  describe(header);
  readTrailer(socket, bMapIndex);
}

void MP3FileInfo::describe(const std::uint8_t* pHeader) {
  std::uint32_t uBitRate = 0;
  int iVersion = 0;
  int iChannels = 0;
  if (!parseMPEGHeader(pHeader, &uBitRate, &iVersion, &m_uSampleRate, &iChannels)) {
    QM_THROW(JTextError, "not an mp3 file");
  }
  m_uFrameSamples = getMPEGFrameSamples(iVersion);
  m_uFrameBytes = getMPEGFrameBytes(uBitRate, iVersion, m_uSampleRate);
  qm_ci::QMAudioInfoNoXml info;
  info.setMIMEType("audio/x-qmmp3");
  info.setPacketizedFormat("linear");
  info.setBitsPerSample(kBits);
  info.setNumberOfChannels(static_cast<std::uint16_t>(iChannels));
  info.setSamplingRate(m_uSampleRate);
  info.setSamplingsPerFrame(m_uFrameSamples);
  info.setNomMaxBitstreamSize(m_uFrameSamples * static_cast<std::uint32_t>(iChannels) * (kBits >> 3U) +
                              kFrameOverhead);
  getStream(1)->setStreamInfo(makeStreamInfo(qm_ci::QMCIAudioInfo(info.getCIInfo())));
  m_uFirstAudioStream = 1;
}

/// What the writer put behind the audio is found from the end.
void MP3FileInfo::readTrailer(JFileSocket& socket, bool bMapIndex) {
  std::uint64_t ullSize = 0;
  JTime creation;
  socket.getInfo(nullptr, &ullSize, &creation);
  std::uint64_t ullEnd = ullSize;
  std::uint8_t mark[3];
  if (ullEnd >= kId3Size && readAt(socket, ullEnd - kId3Size, mark, sizeof mark) &&
      std::memcmp(mark, kId3Mark.data(), sizeof mark) == 0) {
    ullEnd -= kId3Size;
  }
  readIndex(socket, ullEnd, bMapIndex);
  try {
    readParams(socket, ullEnd);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  m_uDataSize = ullEnd;
  FileStreamInfo& stream = *getStream(1);
  if (stream.hasTimes()) {
    stream.setFirstDate(stream.getTimeByNumber(0));
    stream.setLastDate(stream.getTimeByNumber(stream.getCount() - 1));
    return;
  }
  const qm_ci::QMCIAudioInfo audio(
      stream.getStreamInfo()->getBytes().subspan(qm_ci::StreamInfo::kDescriptionAt));
  const std::uint64_t ullBytesPerSecond =
      std::uint64_t{audio.getNumberOfChannels()} * m_uSampleRate * (kBits >> 3U);
  const double dSeconds = static_cast<double>(ullSize) / static_cast<double>(ullBytesPerSecond);
  m_bIndexRebuild = true;
  stream.setFirstDate(creation);
  stream.setLastDate(creation.add(static_cast<std::int64_t>(dSeconds * kMicrosecondsPerSecond)));
}

/// The entries in front of the mark, and the block with the audio's size between them.
void MP3FileInfo::readIndex(JFileSocket& socket, std::uint64_t& ullEnd, bool bMapIndex) {
  std::uint32_t uCount = 0;
  if (!findMark(socket, ullEnd, kIndexMark, uCount)) {
    return;
  }
  const std::uint64_t ullBytes = std::uint64_t{uCount} * index_layout::kNtpSize;
  const std::uint64_t ullBehind = kMarkBlockSize + kSizeBlockSize;
  if (ullEnd < ullBehind + ullBytes) {
    return;  // the count can't be
  }
  const std::uint64_t ullPlace = ullEnd - ullBehind - ullBytes;
  ullEnd = ullPlace;
  if (uCount == 0) {
    return;
  }
  FileStreamInfo& stream = *getStream(1);
  if (bMapIndex) {
    try {
      stream.setMappedEntries(
          FILEINDEX_NTP, static_cast<const std::uint8_t*>(socket.mmap(ullPlace, ullBytes, false)), uCount);
      return;
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());  // then it is read
    }
  }
  auto pEntries = qm_platform::tryAllocate(static_cast<std::size_t>(ullBytes));
  if (pEntries && readAt(socket, ullPlace, pEntries.get(), static_cast<std::size_t>(ullBytes))) {
    stream.setEntries(FILEINDEX_NTP, std::move(pEntries), uCount);
  }
}

/// Two texts with their zeros in front of the mark.
void MP3FileInfo::readParams(JFileSocket& socket, std::uint64_t& ullEnd) {
  std::uint32_t uSize = 0;
  if (!findMark(socket, ullEnd, kParamsMark, uSize) || ullEnd < kMarkBlockSize + std::uint64_t{uSize}) {
    return;
  }
  ullEnd -= kMarkBlockSize + uSize;
  if (uSize > kMaxParams) {
    QM_THROW(JTextError, "parameters of an mp3 file too long");
  }
  std::string sTexts(uSize, '\0');
  if (!readAt(socket, ullEnd, sTexts.data(), sTexts.size())) {
    QM_THROW(JTextError, "parameters of an mp3 file are cut short");
  }
  const std::size_t uFirst = std::min(sTexts.find('\0'), sTexts.size());
  m_params.parse(sTexts.substr(0, uFirst));
  if (uFirst < sTexts.size()) {
    const std::string_view sStream = std::string_view(sTexts).substr(uFirst + 1);
    getStream(1)->getParams().parse(std::string(sStream.substr(0, sStream.find('\0'))));
  }
}

std::unique_ptr<FileInput> MP3FileInfo::makeInput(std::unique_ptr<JISocket> pSocket) {
  return std::make_unique<MP3Input>(std::move(pSocket), *this);
}

void MP3FileInfo::rebuildIndex(bool /*bWriteBack*/, FileProgress* /*pProgress*/, JTime date) {
  FileStreamInfo& stream = *getStream(1);
  if (date != JTime::lastQueryTime()) {
    const JAutoLock lock(m_mutex);
    stream.setIndexType(FILEINDEX_NTP);
    stream.setCount(0);
    stream.setFirstDate(date);
    m_bIndexRebuild = true;
  } else if (!isIndexRebuild()) {
    return;  // there is nothing to build
  }
  MP3Input input(std::make_unique<JFileSocket>(getFileName(), JFileSocket::kRead, true), *this);
  input.setLoop(false);
  bool bAny = false;
  while (input.getNextFrame(nullptr, nullptr, nullptr, false) == FileInput::kFrame) {
    bAny = true;
  }
  const JAutoLock lock(m_mutex);
  m_bIndexRebuild = false;
  if (bAny) {
    stream.dropFrames(1);
    m_uDataSize = input.getFramePosition();
  }
  stream.setLastDate(stream.getCount() > 0 ? stream.getTimeByNumber(stream.getCount() - 1)
                                           : stream.getFirstDate());
}

MP3Input::MP3Input(std::unique_ptr<JISocket> pSocket, MP3FileInfo& fileInfo)
    : FileInput(std::move(pSocket), fileInfo), m_info(fileInfo) {
  moveTo(0);
}

void MP3Input::moveTo(std::uint64_t ullPlace) {
  m_uTaken = m_uFilled = 0;
  m_uPending = 0;
  m_ullRead = ullPlace;
  if (m_pFile != nullptr) {
    m_pFile->seek(static_cast<std::int64_t>(ullPlace), JFileSocket::kStart);
  }
}

/// Fills the buffer up, never beyond the audio. Whether it then holds as many bytes as wanted.
bool MP3Input::refill(std::size_t uWanted) {
  if (held() >= uWanted) {
    return true;
  }
  std::memmove(m_buffer.data(), m_buffer.data() + m_uTaken, held());
  m_uFilled = held();
  m_uTaken = 0;
  const std::uint64_t ullSize = m_info.getDataSize();
  std::uint64_t ullRoom = m_buffer.size() - m_uFilled;
  if (ullSize != std::numeric_limits<std::uint64_t>::max()) {
    ullRoom = std::min(ullRoom, ullSize - std::min(ullSize, m_ullRead));
  }
  const std::size_t uRead =
      qm_utils::readFully(*m_pSocket, m_buffer.data() + m_uFilled, static_cast<std::size_t>(ullRoom));
  m_uFilled += uRead;
  m_ullRead += uRead;
  return held() >= uWanted;
}

/// Bytes of a frame by its header; 0 for what is none.
std::uint32_t MP3Input::frameSize(const std::uint8_t* pHeader) const noexcept {
  std::uint32_t uBitRate = 0;
  int iVersion = 0;
  std::uint32_t uRate = 0;
  bool bPadding = false;
  if (!parseMPEGHeader(pHeader, &uBitRate, &iVersion, &uRate, nullptr, &bPadding) || uRate == 0) {
    return 0;
  }
  const std::uint32_t uSize = uBitRate * (uRate >= kLowestFullRate ? 144U : 72U) / uRate;
  return uSize == 0 ? 0 : uSize + (bPadding ? 1 : 0);
}

int MP3Input::getNextFrame(std::uint32_t* pStream, std::uint32_t* pSize, qm_ci::Bitstream* pBitstream,
                           bool /*bKeepAuthentication*/) {
  bool bWrapped = false;
  for (;;) {
    if (m_uPending > 0) {
      const std::size_t uHeld = std::min(m_uPending, held());
      m_uTaken += uHeld;
      skipBytes(*m_pSocket, m_uPending - uHeld);
      m_ullRead += m_uPending - uHeld;
      m_uPending = 0;
    }
    const auto uNumber = static_cast<std::uint32_t>(getLastNumber(1) + 1);
    const bool bHeader = refill(kMPEGHeaderSize);
    const std::uint8_t* const pHeader = m_buffer.data() + m_uTaken;
    const std::uint32_t uSize = bHeader ? frameSize(pHeader) : 0;
    if (bHeader && (uSize <= kMPEGHeaderSize || uSize > kBufferSize)) {
      qm_err::log(qm_err::kLogError,
                  "Invalid frame header in file %s: frame number=%i, frame size=%u bytes\n",
                  getFileName().c_str(), static_cast<int>(uNumber), uSize);
    } else if (bHeader && !refill(uSize)) {
      qm_err::log(qm_err::kLogError,
                  "Frame %i in file %s is truncated: frame size=%u bytes, actual frame size=%i bytes\n",
                  static_cast<int>(uNumber), getFileName().c_str(), uSize, static_cast<int>(held()));
      return kEnd;
    }
    if (!bHeader || uSize <= kMPEGHeaderSize || uSize > kBufferSize) {
      if (!m_bLoop) {
        return kEnd;
      }
      if (std::exchange(bWrapped, true) || !rewind()) {
        return kFailed;
      }
      continue;
    }
    m_ullFrame = m_ullRead - held();
    m_uPending = uSize;
    setLastNumber(1, uNumber);
    fill(uNumber, pBitstream);
    if (pStream != nullptr) {
      *pStream = 1;
    }
    if (pSize != nullptr) {
      *pSize = uSize;
    }
    return bWrapped ? kWrapped : kFrame;
  }
}

/// The record of a frame, which goes into the index of a file that came without one.
void MP3Input::fill(std::uint32_t uNumber, qm_ci::Bitstream* pBitstream) {
  const FileStreamInfo& stream = *m_info.getStream(1);
  const JAutoLock lock(m_info.getMutex());
  const bool bRebuild = m_info.isIndexRebuild();
  const std::uint64_t ullTime = bRebuild ? timeByPeriod(1, uNumber, Rounding::kDown)
                                         : stream.getTimeByNumber(uNumber).getMicroseconds();
  m_bKeyFrame = true;
  if (bRebuild && uNumber == stream.getCount()) {
    m_info.addNtpEntry(1, uNumber, m_ullFrame | index_layout::kKeyFrame, ullTime);
  }
  if (pBitstream != nullptr) {
    pBitstream->setTimestamp(ullTime);
    pBitstream->setFrameNumber(uNumber);
    pBitstream->setAccessFlags(pBitstream->getAccessFlags() | kKeyFrameFlags);
  }
}

int MP3Input::goTo(std::uint64_t ullPlace, std::uint32_t uNumber, std::uint32_t* pSize,
                   qm_ci::Bitstream* pBitstream) {
  moveTo(ullPlace);
  setLastNumber(1, std::int64_t{uNumber} - 1);
  return getNextFrame(nullptr, pSize, pBitstream, false);
}

// Every frame is a key frame, and the entries of files that this system wrote don't mark them.

int MP3Input::seekFrame(std::uint32_t uStream, std::uint32_t uNumber, std::uint32_t* pSize,
                        qm_ci::Bitstream* pBitstream, bool /*bToKeyFrame*/) {
  checkSingleStream(uStream);
  const std::uint64_t ullPlace = m_info.getStream(1)->getPosByNumber(uNumber, false);
  return goTo(ullPlace, uNumber, pSize, pBitstream);
}

int MP3Input::seekTime(std::uint32_t uStream, std::uint32_t* pSize, JTime time, qm_ci::Bitstream* pBitstream,
                       bool /*bToKeyFrame*/) {
  checkSingleStream(uStream);
  std::uint32_t uNumber = 0;
  const std::uint64_t ullPlace = m_info.getStream(1)->getPosByTime(time, uNumber, false);
  return goTo(ullPlace, uNumber, pSize, pBitstream);
}

std::size_t MP3Input::read(void* pBuffer, std::size_t uSize) {
  const std::size_t uFromBuffer = std::min(uSize, held());
  std::memcpy(pBuffer, m_buffer.data() + m_uTaken, uFromBuffer);
  m_uTaken += uFromBuffer;
  const std::size_t uRead =
      qm_utils::readFully(*m_pSocket, static_cast<std::uint8_t*>(pBuffer) + uFromBuffer, uSize - uFromBuffer);
  m_ullRead += uRead;
  m_uPending -= std::min(m_uPending, uFromBuffer + uRead);
  return uFromBuffer + uRead;
}

/// What isn't read is passed over on the way to the next frame.
void MP3Input::skip(std::size_t /*uSize*/) {}

bool MP3Input::rewind() {
  moveTo(0);
  resetLastNumbers();
  return true;
}
