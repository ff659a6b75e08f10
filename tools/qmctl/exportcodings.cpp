#include "tools/qmctl/exportcodings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmci/audioinfo.h"
#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/vfwtypes.h"
#include "coreapi/qmci/videoinfo.h"
#include "tools/qmctl/failure.h"

namespace qmctl {

namespace {

using qm_ci::StreamInfo;

/// A MIME type and the coding that it names.
struct NamedCoding {
  std::string_view sMIMEType;
  AVCodecID eCoding;
};

constexpr std::array kVideoCodings{
    NamedCoding{"video/H264", AV_CODEC_ID_H264},  NamedCoding{"video/H265", AV_CODEC_ID_HEVC},
    NamedCoding{"video/HEVC", AV_CODEC_ID_HEVC},  NamedCoding{"video/MP4V-ES", AV_CODEC_ID_MPEG4},
    NamedCoding{"video/JPEG", AV_CODEC_ID_MJPEG}, NamedCoding{"image/jpeg", AV_CODEC_ID_MJPEG},
    NamedCoding{"video/H263", AV_CODEC_ID_H263},  NamedCoding{"video/MPV", AV_CODEC_ID_MPEG2VIDEO},
};

/// PCM is missing: its coding depends on the bits of a sample.
constexpr std::array kAudioCodings{
    NamedCoding{qm_ci::kMimeQmMp3, AV_CODEC_ID_MP3},
    NamedCoding{qm_ci::kMimeQmMp3Internal, AV_CODEC_ID_MP3},
    NamedCoding{"audio/x-qmg711", AV_CODEC_ID_PCM_MULAW},
    NamedCoding{"audio/x-qmg726", AV_CODEC_ID_ADPCM_G726LE},
};

constexpr std::array<std::string_view, 3> kPcmTypes{qm_ci::kMimeQmPcm, qm_ci::kMimeQmPcmInternal,
                                                    qm_ci::kMimeWavePcm};

/// Codings of wave headers whose frames say all that a player must know.
constexpr std::array kWaveCodings{AV_CODEC_ID_MP2,       AV_CODEC_ID_MP3,      AV_CODEC_ID_AC3,
                                  AV_CODEC_ID_PCM_MULAW, AV_CODEC_ID_PCM_ALAW, AV_CODEC_ID_AAC};

constexpr int kG726Bits = 4;  ///< of a sample, as the system's own frames of 80 bytes have it

bool isSameType(std::string_view sOne, std::string_view sOther) noexcept {
  return std::ranges::equal(sOne, sOther, [](char a, char b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return lower(a) == lower(b);
  });
}

template <std::size_t N>
AVCodecID find(const std::array<NamedCoding, N>& codings, std::string_view sMIMEType) noexcept {
  const auto named = std::ranges::find_if(
      codings, [&](const NamedCoding& coding) { return isSameType(coding.sMIMEType, sMIMEType); });
  return named != codings.end() ? named->eCoding : AV_CODEC_ID_NONE;
}

/// A coding by the tag that a header of another system has for it.
AVCodecID findTag(const AVCodecTag* pTable, std::uint32_t uTag) {
  const AVCodecTag* const tables[] = {pTable, nullptr};
  return av_codec_get_id(tables, uTag);
}

CodingPtr make(AVMediaType eType, AVCodecID eCoding) {
  CodingPtr pCoding(avcodec_parameters_alloc());
  if (!pCoding) {
    throw Failure(kFailed, "out of memory");
  }
  pCoding->codec_type = eType;
  pCoding->codec_id = eCoding;
  return pCoding;
}

/// Plain pictures: the bits of a pixel follow the type's name. Players are told by a mark that the lines go
/// from the bottom up.
CodingPtr plainPictures(std::string_view sBits, bool bBottomUp) {
  static constexpr char kBottomUp[] = "BottomUp";  // with its zero
  CodingPtr pCoding = make(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_RAWVIDEO);
  int iBits = 0;
  std::from_chars(sBits.data(), sBits.data() + sBits.size(), iBits);
  switch (iBits) {
    case 16:
      pCoding->format = AV_PIX_FMT_RGB555LE;
      break;
    case 24:
      pCoding->format = AV_PIX_FMT_BGR24;
      break;
    case 32:
      pCoding->format = AV_PIX_FMT_BGRA;
      break;
    default:
      return nullptr;
  }
  pCoding->bits_per_coded_sample = iBits;
  if (bBottomUp) {
    setExtradata(*pCoding, {reinterpret_cast<const std::uint8_t*>(kBottomUp), sizeof kBottomUp});
  }
  return pCoding;
}

CodingPtr videoCoding(std::string_view sMIMEType) {
  for (const auto& [sType, bBottomUp] :
       {std::pair{qm_ci::kVfwTopDownRgbType, true}, std::pair{qm_ci::kVfwRgbType, false}}) {
    if (sMIMEType.starts_with(sType)) {
      return plainPictures(sMIMEType.substr(sType.size()), bBottomUp);
    }
  }
  if (sMIMEType.starts_with(qm_ci::kVfwType) && sMIMEType.size() == qm_ci::kVfwType.size() + 4) {
    const std::uint32_t uTag = qm_platform::readLE32(
        reinterpret_cast<const std::uint8_t*>(sMIMEType.data() + qm_ci::kVfwType.size()));
    const AVCodecID eCoding = findTag(avformat_get_riff_video_tags(), uTag);
    CodingPtr pCoding = eCoding != AV_CODEC_ID_NONE ? make(AVMEDIA_TYPE_VIDEO, eCoding) : nullptr;
    if (pCoding) {
      pCoding->codec_tag = uTag;
    }
    return pCoding;
  }
  const AVCodecID eCoding = find(kVideoCodings, sMIMEType);
  return eCoding != AV_CODEC_ID_NONE ? make(AVMEDIA_TYPE_VIDEO, eCoding) : nullptr;
}

CodingPtr describeVideo(const StreamInfo& streamInfo) {
  const auto record = streamInfo.getVideoInfo();
  CodingPtr pCoding = record ? videoCoding(streamInfo.getMIMEType()) : nullptr;
  if (!pCoding) {
    return nullptr;
  }
  const qm_ci::QMVideoInfo info(*record);
  pCoding->width = static_cast<int>(info.getWidth());
  pCoding->height = static_cast<int>(info.getHeight());
  const qm_ci::Fraction aspect = info.getPixelAspectRatio();
  if (aspect.uNumerator != 0 && aspect.uDenominator != 0 && aspect.uNumerator != aspect.uDenominator) {
    pCoding->sample_aspect_ratio = {static_cast<int>(aspect.uNumerator),
                                    static_cast<int>(aspect.uDenominator)};
  }
  if (pCoding->extradata_size == 0) {
    setExtradata(*pCoding, info.getCodingParams());
  }
  return pCoding;
}

AVCodecID pcmCoding(unsigned uBits) noexcept {
  switch (uBits) {
    case 8:
      return AV_CODEC_ID_PCM_U8;
    case 16:
      return AV_CODEC_ID_PCM_S16LE;
    case 24:
      return AV_CODEC_ID_PCM_S24LE;
    case 32:
      return AV_CODEC_ID_PCM_S32LE;
    default:
      return AV_CODEC_ID_NONE;
  }
}

AVCodecID audioCoding(std::string_view sMIMEType, unsigned uBits) {
  if (std::ranges::any_of(kPcmTypes, [&](auto sType) { return isSameType(sType, sMIMEType); })) {
    return pcmCoding(uBits);
  }
  if (const auto uTag = qm_ci::waveTagOf(sMIMEType)) {
    const AVCodecID eCoding = findTag(avformat_get_riff_audio_tags(), *uTag);
    return std::ranges::find(kWaveCodings, eCoding) != kWaveCodings.end() ? eCoding : AV_CODEC_ID_NONE;
  }
  return find(kAudioCodings, sMIMEType);
}

CodingPtr describeAudio(const StreamInfo& streamInfo) {
  const auto record = streamInfo.getAudioInfo();
  if (!record) {
    return nullptr;
  }
  const qm_ci::QMAudioInfo info(*record);
  const AVCodecID eCoding = audioCoding(streamInfo.getMIMEType(), info.getBitsPerSample());
  if (eCoding == AV_CODEC_ID_NONE || info.getNumberOfChannels() == 0 || info.getSamplingRate() == 0 ||
      info.getSamplingRate() > INT32_MAX) {
    return nullptr;
  }
  CodingPtr pCoding = make(AVMEDIA_TYPE_AUDIO, eCoding);
  av_channel_layout_default(&pCoding->ch_layout, info.getNumberOfChannels());
  pCoding->sample_rate = static_cast<int>(info.getSamplingRate());
  const int iBits = eCoding == AV_CODEC_ID_ADPCM_G726LE ? kG726Bits : av_get_exact_bits_per_sample(eCoding);
  if (iBits > 0) {
    const std::int64_t iSampleBits = std::int64_t{iBits} * info.getNumberOfChannels();
    pCoding->bits_per_coded_sample = iBits;
    pCoding->block_align = static_cast<int>(std::max<std::int64_t>(iSampleBits / 8, 1));
    pCoding->bit_rate = iSampleBits * info.getSamplingRate();
  }
  if (eCoding == AV_CODEC_ID_AAC) {
    setExtradata(*pCoding, info.getCodingParams());
  }
  return pCoding;
}

struct FreeFilter {
  void operator()(AVBSFContext* pFilter) const { av_bsf_free(&pFilter); }
};
struct FreePacket {
  void operator()(AVPacket* pPacket) const { av_packet_free(&pPacket); }
};

}  // namespace

CodingPtr codingOf(const StreamInfo& streamInfo) {
  return streamInfo.isVideo()   ? describeVideo(streamInfo)
         : streamInfo.isAudio() ? describeAudio(streamInfo)
                                : nullptr;
}

bool hasHeaderInFrames(const AVCodecParameters& coding) noexcept {
  return coding.codec_id == AV_CODEC_ID_H264 || coding.codec_id == AV_CODEC_ID_HEVC ||
         coding.codec_id == AV_CODEC_ID_MPEG4;
}

void takeHeader(AVCodecParameters& coding, std::span<const std::uint8_t> frame) {
  const AVBitStreamFilter* const pKind = av_bsf_get_by_name("extract_extradata");
  AVBSFContext* pMade = nullptr;
  if (pKind == nullptr || frame.empty() || av_bsf_alloc(pKind, &pMade) < 0) {
    return;
  }
  const std::unique_ptr<AVBSFContext, FreeFilter> pFilter(pMade);
  const std::unique_ptr<AVPacket, FreePacket> pPacket(av_packet_alloc());
  if (!pPacket || avcodec_parameters_copy(pFilter->par_in, &coding) < 0 || av_bsf_init(pFilter.get()) < 0 ||
      av_new_packet(pPacket.get(), static_cast<int>(frame.size())) < 0) {
    return;
  }
  std::memcpy(pPacket->data, frame.data(), frame.size());
  if (av_bsf_send_packet(pFilter.get(), pPacket.get()) < 0 ||
      av_bsf_receive_packet(pFilter.get(), pPacket.get()) < 0) {
    return;
  }
  std::size_t uSize = 0;
  if (const std::uint8_t* const pHeader =
          av_packet_get_side_data(pPacket.get(), AV_PKT_DATA_NEW_EXTRADATA, &uSize)) {
    setExtradata(coding, {pHeader, uSize});
  }
}

PictureOrder::PictureOrder(const AVCodecParameters& coding)
    : m_pParser(av_parser_init(coding.codec_id)), m_pContext(avcodec_alloc_context3(nullptr)) {
  if (m_pParser != nullptr) {
    m_pParser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  }
  if (m_pContext == nullptr || avcodec_parameters_to_context(m_pContext, &coding) < 0) {
    av_parser_close(std::exchange(m_pParser, nullptr));
  }
}

PictureOrder::~PictureOrder() {
  av_parser_close(m_pParser);
  avcodec_free_context(&m_pContext);
}

bool PictureOrder::isMovedForward(std::span<const std::uint8_t> picture) {
  if (m_pParser == nullptr || picture.empty()) {
    return false;
  }
  // Parsers read beyond the end.
  std::vector<std::uint8_t> bytes(picture.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  std::ranges::copy(picture, bytes.begin());
  std::uint8_t* pParsed = nullptr;
  int iParsed = 0;
  av_parser_parse2(m_pParser, m_pContext, &pParsed, &iParsed, bytes.data(), static_cast<int>(picture.size()),
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
  return m_pParser->pict_type == AV_PICTURE_TYPE_B;
}

void setExtradata(AVCodecParameters& coding, std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) {
    return;
  }
  auto* const pCopy = static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (pCopy == nullptr) {
    throw Failure(kFailed, "out of memory");
  }
  std::ranges::copy(bytes, pCopy);
  av_freep(&coding.extradata);
  coding.extradata = pCopy;
  coding.extradata_size = static_cast<int>(bytes.size());
}

}  // namespace qmctl
