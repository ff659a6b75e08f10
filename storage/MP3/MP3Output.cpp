#include "storage/MP3/MP3Output.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/mimetypes.h"
#include "storage/MP3/mp3format.h"

namespace {

using namespace mp3_layout;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kStream = 1;

void append(Bytes& to, std::string_view bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}

void appendWord(Bytes& to, std::uint32_t uWord) {
  to.resize(to.size() + sizeof uWord);
  qm_platform::writeLE32(to.data() + to.size() - sizeof uWord, uWord);
}

std::string textOf(const JParams& params) {
  std::string sText;
  params.toText(sText, ',');
  return sText;
}

void appendParams(Bytes& to, const JParams& fileParams, const JParams& streamParams) {
  const std::string sTexts = textOf(fileParams) + '\0' + textOf(streamParams) + '\0';
  append(to, sTexts);
  append(to, kParamsMark);
  appendWord(to, static_cast<std::uint32_t>(sTexts.size()));
}

void putName(Bytes& tag, std::size_t at, std::string_view sName) {
  sName = sName.substr(0, kId3NameSize);
  std::copy(sName.begin(), sName.end(), tag.begin() + static_cast<std::ptrdiff_t>(at));
}

/// A name as text; the empty one for what is no text. None when it isn't there.
std::optional<std::string> nameOf(const JParams& params, std::string_view sName) {
  std::string sText;
  try {
    return params.get(sName, sText) ? std::optional(sText) : std::nullopt;
  } catch (JError* pError) {
    const qm_err::CaughtError noText(pError);
    return sText;
  }
}

Bytes makeTag(std::string_view sTitle, std::string_view sArtist) {
  Bytes tag(kId3Size);
  std::copy(kId3Mark.begin(), kId3Mark.end(), tag.begin());
  putName(tag, kId3TitleAt, sTitle);
  putName(tag, kId3ArtistAt, sArtist);
  tag[kId3GenreAt] = kId3Genre;
  return tag;
}

}  // namespace

MP3Output::MP3Output(std::unique_ptr<JSocket> pSocket, const std::string& sFileName)
    : FileOutput(std::move(pSocket), std::make_unique<MP3FileInfo>(sFileName)) {}

MP3Output::~MP3Output() {
  if (m_bStarted) {
    finishing([this] {
      const Bytes trailer = makeTrailer();
      m_writer.append(trailer.data(), trailer.size());
    });
  }
}

JParams* MP3Output::getStreamParams(std::uint32_t /*uStreamNumber*/) {
  return &m_poFileInfo->getStream(kStream)->getParams();
}

std::uint32_t MP3Output::addStream(const qm_ci::StreamInfo& streamInfo) {
  checkNotStarted();
  if (streamInfo.getType() != qm_ci::StreamInfo::kAudio || streamInfo.getMIMEType() != qm_ci::kMimeQmMp3) {
    QM_THROW(JTextError, "MP3 files can only be used with MP3 encoded audio");
  }
  FileStreamInfo& record = *m_poFileInfo->getStream(kStream);
  if (record.getStreamInfo() != nullptr) {
    QM_THROW(JTextError, "MP3 files can only contain one stream");
  }
  record.setStreamInfo(streamInfo);
  m_poFileInfo->setFirstAudioStream(kStream);
  return kStream;
}

void MP3Output::writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                           std::uint32_t /*uTime*/, std::uint32_t /*uReserved*/) {
  if (!isCounted(oCIBitstream)) {
    return;
  }
  checkStream(uStreamNumber);
  const JIoBuf payload = payloadOf(oCIBitstream);
  m_writer.append(payload.pBuf, payload.bufLength);
  const JAutoLock lock(m_poFileInfo->getMutex());  // entry and size come at once for readers
  account(uStreamNumber, m_poFileInfo->getDataSize(), oCIBitstream);
  m_poFileInfo->addToDataSize(payload.bufLength);
}

Bytes MP3Output::makeTrailer() const {
  const FileStreamInfo& stream = *m_poFileInfo->getStream(kStream);
  const JParams& fileParams = m_poFileInfo->getParams();
  Bytes trailer;
  if (!fileParams.isEmpty() || !stream.getParams().isEmpty()) {
    appendParams(trailer, fileParams, stream.getParams());
  }
  // An index for which there was no memory is left out; its frames play all the same.
  const std::uint8_t* const pEntries = stream.getEntries();
  const std::uint32_t uEntries = pEntries != nullptr ? stream.getCount() : 0;
  trailer.insert(trailer.end(), pEntries, pEntries + std::size_t{uEntries} * index_layout::kNtpSize);
  std::array<std::uint8_t, kSizeBlockSize> sizes;
  sizes.fill(0xFF);
  qm_platform::writeLE64(sizes.data(), m_poFileInfo->getDataSize());
  trailer.insert(trailer.end(), sizes.begin(), sizes.end());
  append(trailer, kIndexMark);
  appendWord(trailer, uEntries);

  const std::optional<std::string> title = nameOf(stream.getParams(), "sourceName");
  const std::optional<std::string> artist = nameOf(fileParams, "authoringApp");
  if (title || artist) {
    const Bytes tag = makeTag(title.value_or(""), artist.value_or(""));
    trailer.insert(trailer.end(), tag.begin(), tag.end());
  }
  return trailer;
}
