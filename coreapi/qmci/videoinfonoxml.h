#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <vector>

#include "coreapi/qmci/bitmapheader.h"
#include "coreapi/qmci/fraction.h"
#include "coreapi/qmci/mediainfo.h"
#include "coreapi/qmci/videoinforecord.h"

namespace qm_ci {

/// A part of a picture, in pixels.
struct VisibleRegion {
  std::uint32_t uLeft = 0;
  std::uint32_t uTop = 0;
  std::uint32_t uWidth = 0;
  std::uint32_t uHeight = 0;

  bool operator==(const VisibleRegion&) const = default;
};

/// Description of a video stream by its record alone.
///
/// Belongs to one thread at a time.
class QMVideoInfoNoXml : public MediaInfo {
 public:
  QMVideoInfoNoXml();

  /// As `init`.
  explicit QMVideoInfoNoXml(std::span<const std::uint8_t> record, const char* szMIMEType = nullptr,
                            const char* szPacketizedFormat = nullptr);

  /// As the base; GDR period and decoder pipe become 0, the stream index step 1.
  void reset() override;

  using MediaInfo::getPacketizedFormat;
  using MediaInfo::setPacketizedFormat;

  std::uint32_t getWidth() const noexcept { return word(QMCIVideoInfo::kWidthAt); }
  void setWidth(std::uint32_t uWidth) noexcept { setWord(QMCIVideoInfo::kWidthAt, uWidth); }
  std::uint32_t getHeight() const noexcept { return word(QMCIVideoInfo::kHeightAt); }
  void setHeight(std::uint32_t uHeight) noexcept { setWord(QMCIVideoInfo::kHeightAt, uHeight); }

  /// Changes the size of the picture: the visible region and the pixel aspect ratio follow, so that the
  /// picture keeps its shape. Widths from 690 to 720 count as one: they are the same line, cut differently.
  void setSize(std::uint32_t uWidth, std::uint32_t uHeight);

  /// Pictures a second.
  Fraction getPictureRate() const noexcept;

  /// Sets the picture rate, reduced.
  template <std::integral Numerator, std::integral Denominator>
  void setPictureRate(Numerator numerator, Denominator denominator) {
    setPictureRate(Fraction{static_cast<std::uint32_t>(numerator), static_cast<std::uint32_t>(denominator)});
  }
  void setPictureRate(Fraction rate) noexcept;

  /// Sets the simplest fraction within a tolerance of a real number. False, and nothing changes, when there
  /// is none.
  bool setPictureRate(double value, double tolerance) noexcept;

  /// A QMCI_INTERLACE.
  std::uint32_t getInterlace() const noexcept { return word(QMCIVideoInfo::kInterlaceAt); }
  void setInterlace(std::uint32_t uInterlace) noexcept { setWord(QMCIVideoInfo::kInterlaceAt, uInterlace); }

  /// Fields of a picture, by the interlace; 0 when it isn't set. An unknown interlace fails an assertion.
  unsigned getFieldsPerPicture() const;

  Fraction getPixelAspectRatio() const noexcept;
  void setPixelAspectRatio(Fraction ratio) noexcept;

  VisibleRegion getVisibleRegion() const noexcept;
  void setVisibleRegion(const VisibleRegion& region) noexcept;

  std::uint32_t getMaxNonDisposableAccLvl() const noexcept {
    return word(QMCIVideoInfo::kMaxNonDisposableAccLvlAt);
  }
  void setMaxNonDisposableAccLvl(std::uint32_t uLevel) noexcept {
    setWord(QMCIVideoInfo::kMaxNonDisposableAccLvlAt, uLevel);
  }

  std::uint32_t getStreamIndexStep() const noexcept { return word(QMCIVideoInfo::kStreamIndexStepAt); }
  void setStreamIndexStep(std::uint32_t uStep) noexcept { setWord(QMCIVideoInfo::kStreamIndexStepAt, uStep); }

  /// -1 when unset.
  std::int32_t getGDRPeriod() const noexcept {
    return static_cast<std::int32_t>(word(QMCIVideoInfo::kGDRPeriodAt));
  }
  void setGDRPeriod(std::int32_t iPeriod) noexcept {
    setWord(QMCIVideoInfo::kGDRPeriodAt, static_cast<std::uint32_t>(iPeriod));
  }

  std::uint32_t getDecoderPipe() const noexcept { return word(QMCIVideoInfo::kDecoderPipeAt); }
  void setDecoderPipe(std::uint32_t uPictures) noexcept { setWord(QMCIVideoInfo::kDecoderPipeAt, uPictures); }

  bool getTimeReversed() const noexcept { return word(QMCIVideoInfo::kTimeReversedAt) == 1; }
  void setTimeReversed(bool bReversed) noexcept {
    setWord(QMCIVideoInfo::kTimeReversedAt, bReversed ? 1 : 0);
  }

  /// Whether the other describes the same stream: all fields but the stream index step and the stream
  /// parameters, rates and ratios as fractions, the MIME type without regard to case. With `bCompareSize` the
  /// blocks must be of the same size too.
  bool isSameStream(const QMVideoInfoNoXml& other, bool bCompareSize) const;

  /// The description as XML.
  std::string getXML() const;

  /// A bitmap header with what it needs behind it, `biSize` bytes. Streams of a MIME type "video/x-VfW-..."
  /// get the header that the type names; all others one of compression "QMCI" with the XML form behind it.
  /// Throws JTextError for a type whose number of bits is wrong, and for sizes that a header can't hold.
  std::vector<std::uint8_t> createBMI() const;

 private:
  std::vector<std::uint8_t> createBMInotQMCI() const;
  BitmapInfoHeader bitmapHeader() const;
};

}  // namespace qm_ci
