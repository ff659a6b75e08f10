#include "tools/qmctl/muxer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

#include "coreapi/platform/fileaccess.h"
#include "coreapi/platform/filetree.h"
#include "coreapi/platform/systemerror.h"
#include "coreapi/qmutils/error/jerror.h"
#include "tools/qmctl/failure.h"

namespace qmctl {

namespace {

struct Container {
  const char* szEnding;
  const char* szMuxer;
};

constexpr std::array kContainers{Container{".mkv", "matroska"}, Container{".mp4", "mp4"},
                                 Container{".avi", "avi"}, Container{".mp3", "mp3"},
                                 Container{".wav", "wav"}};

constexpr AVRational kMicroseconds{1, 1'000'000};
constexpr int kBufferSize = 1 << 16;

/// Frames further than this behind the first one can't be of one recording: 100 years.
constexpr std::uint64_t kLongest = std::uint64_t{100} * 366 * 86400 * 1'000'000;

/// What libavformat said last; it says more than its error numbers do.
std::string s_sLastWords;

void keepWords(void* pObject, int iLevel, const char* szFormat, va_list arguments) {
  if (iLevel > AV_LOG_ERROR) {
    return;
  }
  char line[512];
  int iPrintPrefix = 0;
  av_log_format_line2(pObject, iLevel, szFormat, arguments, line, sizeof line, &iPrintPrefix);
  s_sLastWords = line;
  while (!s_sLastWords.empty() && s_sLastWords.back() == '\n') {
    s_sLastWords.pop_back();
  }
}

std::string endingOf(const std::string& sPath) {
  const std::size_t uSlash = sPath.rfind('/');
  const std::size_t uDot = sPath.rfind('.');
  if (uDot == std::string::npos || (uSlash != std::string::npos && uDot < uSlash)) {
    return {};
  }
  std::string sEnding = sPath.substr(uDot);
  std::ranges::transform(sEnding, sEnding.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return sEnding;
}

std::string iso(JTime date) {
  std::uint32_t uMicroseconds = 0;
  const std::int64_t iSeconds = date.toUnixSeconds(&uMicroseconds);
  const std::chrono::sys_seconds time{std::chrono::seconds(iSeconds)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day ymd(day);
  const std::chrono::hh_mm_ss clock(time - day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%06uZ", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), uMicroseconds);
  return text;
}

[[noreturn]] void outOfMemory() {
  throw Failure(kFailed, "out of memory");
}

}  // namespace

void Muxer::FreeIo::operator()(AVIOContext* pIo) const {
  av_freep(&pIo->buffer);
  avio_context_free(&pIo);
}

Muxer::Muxer(std::string sOut) : m_sOut(std::move(sOut)), m_sEnding(endingOf(m_sOut)) {
  av_log_set_callback(keepWords);
  s_sLastWords.clear();
  const auto container = std::ranges::find_if(
      kContainers, [this](const Container& known) { return m_sEnding == known.szEnding; });
  if (container == kContainers.end()) {
    throw Failure(kWrongUsage, "'" + m_sOut + "' must end in .mkv, .mp4, .avi, .mp3 or .wav");
  }
  AVFormatContext* pContext = nullptr;
  if (avformat_alloc_output_context2(&pContext, nullptr, container->szMuxer, nullptr) < 0) {
    throw Failure(kFailed, "libavformat of this machine can't write " + m_sEnding + " files");
  }
  m_pContext.reset(pContext);
  m_pContext->flags |= AVFMT_FLAG_BITEXACT;  // the same recording gives the same file each time
  m_pPacket.reset(av_packet_alloc());
  if (!m_pPacket) {
    outOfMemory();
  }
}

Muxer::~Muxer() {
  m_pIo.reset();
  m_pFile.reset();
  if (!m_sWork.empty()) {
    qm_platform::deleteFile(m_sWork);
  }
}

bool Muxer::takes(const AVCodecParameters& coding) const {
  if (m_sEnding == ".mp3") {
    return coding.codec_id == AV_CODEC_ID_MP3;
  }
  if (m_sEnding == ".wav" && (coding.codec_type != AVMEDIA_TYPE_AUDIO || coding.bits_per_coded_sample == 0)) {
    return false;
  }
  if (coding.codec_id == AV_CODEC_ID_RAWVIDEO && m_sEnding != ".avi") {
    return false;
  }
  return avformat_query_codec(m_pContext->oformat, coding.codec_id, FF_COMPLIANCE_NORMAL) == 1;
}

std::size_t Muxer::addStream(const AVCodecParameters& coding, std::uint64_t uPeriodNumerator,
                             std::uint64_t uPeriodDenominator) {
  AVStream* const pStream = avformat_new_stream(m_pContext.get(), nullptr);
  if (pStream == nullptr || avcodec_parameters_copy(pStream->codecpar, &coding) < 0) {
    outOfMemory();
  }
  // A container that has no such tag for the coding gets its own one.
  const AVCodecTag* const* const pTables = m_pContext->oformat->codec_tag;
  unsigned int uTag = 0;
  if (pTables != nullptr && av_codec_get_id(pTables, coding.codec_tag) != coding.codec_id &&
      av_codec_get_tag2(pTables, coding.codec_id, &uTag) != 0) {
    pStream->codecpar->codec_tag = 0;
  }
  Stream kept{pStream, 0, std::numeric_limits<std::int64_t>::min()};
  pStream->time_base = kMicroseconds;
  if (coding.codec_type == AVMEDIA_TYPE_AUDIO) {
    pStream->time_base = {1, coding.sample_rate};
  } else if (uPeriodNumerator != 0 && uPeriodDenominator != 0) {
    AVRational period{};
    av_reduce(&period.num, &period.den, static_cast<std::int64_t>(uPeriodNumerator),
              static_cast<std::int64_t>(uPeriodDenominator), std::numeric_limits<int>::max());
    if (period.num > 0 && period.den > 0) {
      kept.iPeriod = av_rescale_q(1, period, kMicroseconds);
      pStream->avg_frame_rate = {period.den, period.num};
      // An AVI file counts frames; the others have times of their own for each.
      pStream->time_base = m_sEnding == ".avi" ? period : kMicroseconds;
    }
  }
  m_streams.push_back(kept);
  return m_streams.size() - 1;
}

void Muxer::start(JTime date, bool bHeaderGiven) {
  openWorkFile();
  openIo();
  if (date >= JTime::firstQueryTime()) {  // a file without dates counts from 0
    av_dict_set(&m_pContext->metadata, "creation_time", iso(date).c_str(), 0);
  }
  if (bHeaderGiven && m_sEnding == ".mp3") {
    av_opt_set(m_pContext->priv_data, "write_xing", "0", 0);
  }
  check(avformat_write_header(m_pContext.get(), nullptr), "can't begin the file");
}

/// A leftover of an export that was killed is taken away; the work file of one that goes on isn't.
void Muxer::openWorkFile() {
  const std::string sWork = m_sOut + ".exporting";
  qm_platform::removeUnused(sWork);
  qm_platform::OpenedFile opened;
  const int iError = qm_platform::openFile(sWork,
                                           {.access = qm_platform::FileAccess::kReadWrite,
                                            .creation = qm_platform::FileCreation::kNew,
                                            .exclusive = true},
                                           opened);
  if (iError != 0) {
    qm_platform::removeUnused(sWork);  // it may be there all the same
    throw Failure(kFailed, sWork + ": " + qm_platform::systemErrorText(static_cast<unsigned>(iError)));
  }
  m_sWork = sWork;
  m_pFile = std::make_unique<JFileSocket>(opened.descriptor);
}

void Muxer::openIo() {
  auto* pBuffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
  AVIOContext* const pIo = pBuffer != nullptr ? avio_alloc_context(pBuffer, kBufferSize, 1, this, nullptr,
                                                                   &Muxer::writeBytes, &Muxer::seek)
                                              : nullptr;
  if (pIo == nullptr) {
    av_freep(&pBuffer);
    outOfMemory();
  }
  m_pIo.reset(pIo);
  m_pContext->pb = pIo;
}

/// Called from C: what is thrown is kept and ends here.
int Muxer::writeBytes(void* pMuxer, std::uint8_t* pBytes, int iSize) {
  auto& muxer = *static_cast<Muxer*>(pMuxer);
  try {
    muxer.m_pFile->write(pBytes, static_cast<std::size_t>(iSize));
    return iSize;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    muxer.m_sFault = error->getMessage();
    return AVERROR(EIO);
  }
}

std::int64_t Muxer::seek(void* pMuxer, std::int64_t iOffset, int iWhence) {
  auto& muxer = *static_cast<Muxer*>(pMuxer);
  if (iWhence != SEEK_SET && iWhence != SEEK_CUR && iWhence != SEEK_END) {
    return AVERROR(ENOSYS);
  }
  try {
    return static_cast<std::int64_t>(muxer.m_pFile->seek(iOffset, iWhence));
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    muxer.m_sFault = error->getMessage();
    return AVERROR(EIO);
  }
}

/// In the stream's time base; 0 for not known.
std::int64_t Muxer::durationOf(const Stream& stream, std::size_t uSize) const {
  if (stream.pStream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
    return av_rescale_q(stream.iPeriod, kMicroseconds, stream.pStream->time_base);
  }
  const int iSamplings = av_get_audio_frame_duration2(stream.pStream->codecpar, static_cast<int>(uSize));
  return av_rescale_q(iSamplings, {1, stream.pStream->codecpar->sample_rate}, stream.pStream->time_base);
}

void Muxer::write(std::size_t uStream, std::span<const std::uint8_t> payload, std::uint64_t ullTime,
                  bool bKeyFrame) {
  Stream& stream = m_streams.at(uStream);
  if (ullTime > kLongest) {
    throw Failure(kFailed, "the time of a frame lies more than 100 years behind that of the first one");
  }
  if (payload.size() > std::numeric_limits<int>::max() ||
      av_new_packet(m_pPacket.get(), static_cast<int>(payload.size())) < 0) {
    outOfMemory();
  }
  std::ranges::copy(payload, m_pPacket->data);
  std::int64_t iTime =
      av_rescale_q(static_cast<std::int64_t>(ullTime), kMicroseconds, stream.pStream->time_base);
  if (stream.iLast != std::numeric_limits<std::int64_t>::min()) {
    iTime = std::max(iTime, stream.iLast + 1);
  }
  stream.iLast = iTime;
  m_pPacket->stream_index = stream.pStream->index;
  m_pPacket->pts = m_pPacket->dts = iTime;
  m_pPacket->duration = durationOf(stream, payload.size());
  m_pPacket->flags = bKeyFrame ? AV_PKT_FLAG_KEY : 0;
  check(av_interleaved_write_frame(m_pContext.get(), m_pPacket.get()), "can't write a frame");
}

void Muxer::finish() {
  check(av_write_trailer(m_pContext.get()), "can't end the file");
  avio_flush(m_pIo.get());
  check(m_pIo->error, "can't write the file");
  try {
    m_pFile->flush();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    throw Failure(kFailed, m_sOut + ": " + error->getMessage());
  }
  m_pIo.reset();
  m_pFile.reset();
  const int iError = qm_platform::moveFile(m_sWork, m_sOut, true);
  if (iError != 0) {
    throw Failure(kFailed, m_sOut + ": " + qm_platform::systemErrorText(static_cast<unsigned>(iError)));
  }
  m_sWork.clear();
}

void Muxer::check(int iResult, const char* szWhat) const {
  if (iResult >= 0) {
    return;
  }
  char text[AV_ERROR_MAX_STRING_SIZE];
  av_strerror(iResult, text, sizeof text);
  const std::string& sReason = !m_sFault.empty() ? m_sFault : !s_sLastWords.empty() ? s_sLastWords : text;
  throw Failure(kFailed, m_sOut + ": " + szWhat + ": " + sReason);
}

}  // namespace qmctl
