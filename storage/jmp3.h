#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "storage/mpegheader.h"

struct lame_global_struct;
struct hip_global_struct;

/// What coder and decoder of MP3 frames tell about their stream; 0 as long as it isn't known.
class JMP3 {
 public:
  virtual int getFrameBytes() const = 0;    ///< of one frame, without padding
  virtual int getFrameSamples() const = 0;  ///< samplings of one frame, each of all channels
  virtual int getSampleRate() const = 0;    ///< samplings a second
  virtual int getChannels() const = 0;
  virtual int getBitRate() const = 0;  ///< bits a second
  virtual int getMode() const = 0;     ///< 2 stereo, 3 two separate channels, 1 all else
  virtual ~JMP3() = default;
};

/// Makes MP3 frames of constant bit rate out of PCM, one at a time. Belongs to one thread.
class JMP3Encoder : public JMP3 {
 public:
  JMP3Encoder();
  ~JMP3Encoder() override;
  JMP3Encoder(const JMP3Encoder&) = delete;
  JMP3Encoder& operator=(const JMP3Encoder&) = delete;

  /// Begins a stream: bits and samplings a second, 1 or 2 channels, and whether a frame may use room that
  /// earlier ones left. Throws JTextError "lame init params failed" for what can't be coded.
  void open(int iBitRate, int iSampleRate, int iChannels, bool bBitReservoir);

  /// Codes `getFrameSamples()` samplings of 16 bits, of which two channels stand interleaved. Returns the
  /// bytes of the frame that came out, at most `getFrameBytes() + 1`, put into `pOutput`; 0 when there is no
  /// whole frame yet; a negative number as the library told it. Throws JTextError "MP3 encoder jammed" when
  /// what the library delivered isn't a frame.
  int encode(const std::int16_t* pPcm, std::uint8_t* pOutput);

  int getFrameBytes() const override { return m_iFrameBytes; }
  int getFrameSamples() const override { return m_iFrameSamples; }
  int getSampleRate() const override;
  int getChannels() const override;
  int getBitRate() const override;
  int getMode() const override;

 private:
  static constexpr std::size_t kBufferSize = 3392;

  void close() noexcept;
  void prime();

  lame_global_struct* m_pFlags = nullptr;
  int m_iFrameBytes = 0;
  int m_iFrameSamples = 0;
  std::array<std::uint8_t, kBufferSize> m_buffer{};
  std::size_t m_waiting = 0;  ///< bytes in the buffer
};

/// Makes PCM out of MP3 frames. All decoders of a process run one at a time.
class JMP3Decoder : public JMP3 {
 public:
  /// Bytes of the PCM of one frame at most.
  static constexpr std::size_t kOutputSize = 4608;

  /// Throws JTextError when the library has no memory.
  JMP3Decoder();
  ~JMP3Decoder() override;
  JMP3Decoder(const JMP3Decoder&) = delete;
  JMP3Decoder& operator=(const JMP3Decoder&) = delete;

  /// Decodes one frame into samplings of 16 bits, two channels interleaved; `pOutput` has room for
  /// `kOutputSize` bytes. Returns the samplings of all channels together, 0 when the library wants more
  /// input, -1 for an error.
  int decode(const std::uint8_t* pInput, std::size_t uSize, std::int16_t* pOutput);

  // From the header of the frame that was decoded last.
  int getFrameBytes() const override;
  int getFrameSamples() const override;
  int getSampleRate() const override { return static_cast<int>(m_uSampleRate); }
  int getChannels() const override { return m_iChannels; }
  int getBitRate() const override { return static_cast<int>(m_uBitRate); }
  int getMode() const override { return m_iMode; }

 private:
  void readHeader(const std::uint8_t* pInput, std::size_t uSize) noexcept;

  hip_global_struct* m_pState;
  std::uint32_t m_uBitRate = 0;
  int m_iVersion = 0;
  std::uint32_t m_uSampleRate = 0;
  int m_iChannels = 0;
  int m_iMode = 0;
};
