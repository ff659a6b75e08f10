#include "storage/jmp3.h"

#include <algorithm>
#include <cstdarg>
#include <lame.h>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/text/jtext.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace {

/// The decoder's tables are one for the process.
JMutex& decoderMutex() {
  static JMutex mutex;
  return mutex;
}

/// What the library would print on the host's standard error stream.
[[gnu::format(printf, 1, 0)]] void logReport(const char* szFormat, va_list arguments) {
  try {
    qm_err::logText(qm_err::kLogDebug, qm_utils::vformat(szFormat, arguments).c_str());
  } catch (JError* pError) {
    const qm_err::CaughtError untold(pError);
  }
}

/// By the mode field of a header, which has the library's numbers.
int modeOf(int iMode) noexcept {
  switch (iMode) {
    case STEREO:
      return 2;
    case DUAL_CHANNEL:
      return 3;
    default:
      return 1;
  }
}

}  // namespace

JMP3Encoder::JMP3Encoder() = default;

JMP3Encoder::~JMP3Encoder() {
  close();
}

void JMP3Encoder::close() noexcept {
  if (m_pFlags != nullptr) {
    lame_close(std::exchange(m_pFlags, nullptr));
  }
  m_iFrameBytes = 0;
  m_iFrameSamples = 0;
  m_waiting = 0;
}

void JMP3Encoder::open(int iBitRate, int iSampleRate, int iChannels, bool bBitReservoir) {
  close();
  m_pFlags = lame_init();
  if (m_pFlags == nullptr) {
    QM_THROW(JTextError, "out of memory");
  }
  lame_set_errorf(m_pFlags, logReport);
  // The library goes on with what it had before when it can't take a setting.
  bool bTaken = lame_set_in_samplerate(m_pFlags, iSampleRate) >= 0;
  bTaken = lame_set_out_samplerate(m_pFlags, iSampleRate) >= 0 && bTaken;
  bTaken = lame_set_num_channels(m_pFlags, iChannels) >= 0 && bTaken;
  lame_set_quality(m_pFlags, 5);
  lame_set_mode(m_pFlags, iChannels == 2 ? JOINT_STEREO : MONO);
  bTaken = lame_set_brate(m_pFlags, iBitRate / 1000) >= 0 && bTaken;
  lame_set_VBR(m_pFlags, vbr_off);
  if (!bBitReservoir) {
    lame_set_disable_reservoir(m_pFlags, 1);
  }
  // Padding needs no word: the library pads frames where the sampling rate asks for it, and no others.
  // A stream has no first frame that tells about the whole of it.
  lame_set_bWriteVbrTag(m_pFlags, 0);
  if (!bTaken || lame_init_params(m_pFlags) < 0) {
    close();
    QM_THROW(JTextError, "lame init params failed");
  }
  prime();
}

/// Frames of what the library has settled on.
void JMP3Encoder::prime() {
  constexpr int kLowestOfMPEG1 = 32000;
  const int iVersion = getSampleRate() >= kLowestOfMPEG1 ? 1 : 2;
  m_iFrameSamples = static_cast<int>(getMPEGFrameSamples(iVersion));
  m_iFrameBytes = static_cast<int>(getMPEGFrameBytes(static_cast<std::uint32_t>(getBitRate()), iVersion,
                                                     static_cast<std::uint32_t>(getSampleRate())));
}

int JMP3Encoder::getSampleRate() const {
  return m_pFlags != nullptr ? lame_get_in_samplerate(m_pFlags) : 0;
}

int JMP3Encoder::getChannels() const {
  return m_pFlags != nullptr ? lame_get_num_channels(m_pFlags) : 0;
}

int JMP3Encoder::getBitRate() const {
  return m_pFlags != nullptr ? lame_get_brate(m_pFlags) * 1000 : 0;
}

int JMP3Encoder::getMode() const {
  return m_pFlags != nullptr ? modeOf(lame_get_mode(m_pFlags)) : 0;
}

int JMP3Encoder::encode(const std::int16_t* pPcm, std::uint8_t* pOutput) {
  if (m_pFlags == nullptr) {
    return -1;
  }
  if (m_waiting == m_buffer.size()) {
    // Without room the library would take the buffer for endless.
    QM_THROW(JTextError, "MP3 encoder jammed");
  }
  std::uint8_t* const pFree = m_buffer.data() + m_waiting;
  const auto iFree = static_cast<int>(m_buffer.size() - m_waiting);
  // The calls declare what they only read as writable.
  auto* const pInput = const_cast<std::int16_t*>(pPcm);
  const int iCoded = getChannels() == 2
                         ? lame_encode_buffer_interleaved(m_pFlags, pInput, m_iFrameSamples, pFree, iFree)
                         : lame_encode_buffer(m_pFlags, pInput, pInput, m_iFrameSamples, pFree, iFree);
  if (iCoded < 0) {
    return iCoded;
  }
  m_waiting += static_cast<std::size_t>(iCoded);
  auto frame = static_cast<std::size_t>(m_iFrameBytes);
  if (m_waiting < frame) {
    return 0;
  }
  bool bPadding = false;
  if (!parseMPEGHeader(m_buffer.data(), nullptr, nullptr, nullptr, nullptr, &bPadding)) {
    QM_THROW(JTextError, "MP3 encoder jammed");
  }
  frame += bPadding ? 1 : 0;
  if (m_waiting < frame) {
    return 0;
  }
  std::copy_n(m_buffer.begin(), frame, pOutput);
  std::copy(m_buffer.begin() + static_cast<std::ptrdiff_t>(frame),
            m_buffer.begin() + static_cast<std::ptrdiff_t>(m_waiting), m_buffer.begin());
  m_waiting -= frame;
  return static_cast<int>(frame);
}

JMP3Decoder::JMP3Decoder() {
  const JAutoLock lock(decoderMutex());
  m_pState = hip_decode_init();
  if (m_pState == nullptr) {
    QM_THROW(JTextError, "out of memory");
  }
  hip_set_errorf(m_pState, logReport);
  hip_set_debugf(m_pState, logReport);
  hip_set_msgf(m_pState, logReport);
}

JMP3Decoder::~JMP3Decoder() {
  const JAutoLock lock(decoderMutex());
  hip_decode_exit(m_pState);
}

void JMP3Decoder::readHeader(const std::uint8_t* pInput, std::size_t uSize) noexcept {
  if (uSize >= kMPEGHeaderSize &&
      parseMPEGHeader(pInput, &m_uBitRate, &m_iVersion, &m_uSampleRate, &m_iChannels)) {
    m_iMode = modeOf(getMPEGMode(pInput));
  }
}

int JMP3Decoder::getFrameBytes() const {
  return static_cast<int>(getMPEGFrameBytes(m_uBitRate, m_iVersion, m_uSampleRate));
}

int JMP3Decoder::getFrameSamples() const {
  return m_iVersion != 0 ? static_cast<int>(getMPEGFrameSamples(m_iVersion)) : 0;
}

/// The library gives the channels apart.
int JMP3Decoder::decode(const std::uint8_t* pInput, std::size_t uSize, std::int16_t* pOutput) {
  constexpr std::size_t kMostSamples = kOutputSize / (2 * sizeof(std::int16_t));
  std::array<std::int16_t, kMostSamples> left;
  std::array<std::int16_t, kMostSamples> right;
  readHeader(pInput, uSize);
  const JAutoLock lock(decoderMutex());
  const int iSamples =
      hip_decode1(m_pState, const_cast<std::uint8_t*>(pInput), uSize, left.data(), right.data());
  if (iSamples <= 0) {
    return iSamples < 0 ? -1 : 0;
  }
  const auto count = std::min(static_cast<std::size_t>(iSamples), kMostSamples);
  if (m_iChannels != 2) {
    std::copy_n(left.begin(), count, pOutput);
    return static_cast<int>(count);
  }
  for (std::size_t i = 0; i < count; ++i) {
    pOutput[2 * i] = left[i];
    pOutput[2 * i + 1] = right[i];
  }
  return static_cast<int>(2 * count);
}
