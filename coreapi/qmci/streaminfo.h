#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "coreapi/qmci/audioinforecord.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmci/videoinforecord.h"

class JParams;

namespace qm_ci {

class QMDataInfoNoXml;

/// Properties of a stream, given as text or as a list; null is the empty text.
class StreamProperties {
 public:
  StreamProperties() = default;
  StreamProperties(std::string sText) : m_sText(std::move(sText)) {}
  StreamProperties(const char* szText) : m_sText(szText != nullptr ? szText : "") {}
  StreamProperties(const JParams* pParams);

  const std::string& getText() const noexcept { return m_sText; }

 private:
  std::string m_sText;
};

/// What a stream carries: one block of memory, which files and sockets carry as it stands or with its numbers
/// swapped:
///
///     offset  width  field
///          0      4  type        1 video, 2 audio, 4 data
///          4      4  infoSize    bytes of the whole record
///          8         description QMCIVideoInfo, QMCIAudioInfo or StreamDataInfo, by type
///                    properties  text of a JParams with "," between parameters, zero-terminated; may be
///                    empty
///
/// All numbers are little-endian. The description says its own size, and the properties follow it.
///
/// A record may come from a file or a peer: sizes, offsets and the ends of texts are checked when the object
/// is made, and everything else may rely on them. One of an unknown type is kept too, but nothing inside it
/// is read.
///
/// Several threads may read an object that nobody changes.
class StreamInfo {
 public:
  /// Never renumber: files and wires hold these.
  enum Type : std::uint32_t { kVideo = 1, kAudio = 2, kData = 4 };

  static constexpr std::size_t kTypeAt = 0;
  static constexpr std::size_t kInfoSizeAt = 4;
  static constexpr std::size_t kDescriptionAt = 8;

  /// A copy of the record at the start of `bytes`. Throws JTextError, after the assertion that says what is
  /// wrong with it.
  explicit StreamInfo(std::span<const std::uint8_t> bytes);

  /// The record, `getInfoSize` bytes. Valid until the object changes or goes.
  std::span<const std::uint8_t> getBytes() const noexcept { return m_bytes; }

  /// A record of its parts. Throws JTextError for sizes over 32 bits, and as the constructor.
  static StreamInfo make(std::uint32_t uType, std::span<const std::uint8_t> description,
                         std::string_view sProperties);

  std::uint32_t getType() const noexcept;
  std::uint32_t getInfoSize() const noexcept { return static_cast<std::uint32_t>(m_bytes.size()); }

  /// A data stream counts as video or audio by its MIME type.
  bool isVideo() const noexcept;
  bool isAudio() const noexcept;
  bool isData() const noexcept { return getType() == kData; }
  bool isSynthetic() const noexcept;

  /// The MIME type; empty for an unknown type. Valid until the object changes or goes.
  std::string_view getMIMEType() const noexcept;

  /// The properties as text; null for an unknown type. Valid until the object changes or goes.
  const char* getProperties() const noexcept;

  /// Adds the properties to a list. Throws JTextError "NULL pointer" for a null list, and what
  /// `JParams::parse` throws.
  void getProperties(JParams* pParams) const;

  /// Frames a second; of audio, samplings a second and samplings a frame. 0 and 0 for an unknown type.
  void getRate(std::uint32_t& uNumerator, std::uint32_t& uDenominator) const noexcept;

  /// Milliseconds a frame as denominator / numerator, with a numerator of at most 4294967. Both must be
  /// given; else it is a failed assertion and nothing is set.
  void getTimeBase(std::uint64_t* pNumerator, std::uint64_t* pDenominator) const noexcept;

  /// Milliseconds a frame; 0 when the rate's numerator is 0.
  double getFramePeriod() const noexcept;

  /// Bytes of the largest frame, its header included; with authentication when that is larger.
  std::uint32_t getMaxFrameSize() const;

  /// The property "AuthFrameSize", bytes; 0 when there is none or it isn't a number.
  std::uint32_t getAuthFrameSize() const;

  /// The properties "PlayRateNumerator" and "PlayRateDenominator"; false, and nothing set, unless both are
  /// there.
  bool getPlayRate(std::int32_t& iNumerator, std::int32_t& iDenominator) const;

  /// The same stream with more properties behind the ones that it has.
  StreamInfo withProperties(const JParams& params) const;

  /// Stores the nominal largest frame in the description of a video or audio stream; others stay as they are.
  void setNomMaxBitstreamSize(std::uint32_t uSize) noexcept;

  /// Throws the first difference from another stream, after logging it and a listing of both: JTextError that
  /// names the difference, JNullPointerError for null. With `bMimeOnly` only the MIME types count.
  void checkCompatible(const StreamInfo* pOther, bool bMimeOnly) const;

  /// Whether `checkCompatible` finds no difference.
  bool isCompatible(const StreamInfo* pOther, bool bMimeOnly) const;

  /// Writes a listing for logs: lines "label=value", each with the separator behind it.
  void toText(std::ostream& stream, std::string_view sSeparator) const;

  /// The same with the longer labels.
  void toDetailedText(std::ostream& stream, std::string_view sSeparator) const;

  /// A copy of the description as a QMCIVideoInfo. That of a data stream of a video type is made from its
  /// XML, for which `QMXml::initialize` comes first. None, with the reason in the log, for other streams and
  /// XML that doesn't give one.
  std::optional<InfoBlock> getVideoInfo() const;

  /// A copy of the description as a QMCIAudioInfo. None, with the reason in the log, for other streams; data
  /// streams of an audio type have no such form.
  std::optional<InfoBlock> getAudioInfo() const;

  /// The description of a data stream as a QMCIDataInfo; none, with the reason in the log, for other streams.
  std::optional<InfoBlock> getDataInfo() const;

  /// A copy of the description of a data stream; none, with the reason in the log, for other streams.
  std::optional<InfoBlock> getStreamDataInfo() const;

 private:
  struct Labels;

  std::span<const std::uint8_t> description() const noexcept;
  void throwDifference(const StreamInfo& other, bool bMimeOnly) const;
  void throwDescriptionDifference(const StreamInfo& other) const;
  void write(std::ostream& stream, std::string_view sSeparator, const Labels& labels) const;

  InfoBlock m_bytes;
  std::size_t m_uPropertiesAt = 0;  ///< 0 for an unknown type
};

/// A record of a description and properties. Throws JTextError for sizes over 32 bits.
StreamInfo makeStreamInfo(const QMCIVideoInfo& videoInfo, const StreamProperties& properties = {});
StreamInfo makeStreamInfo(const QMCIAudioInfo& audioInfo, const StreamProperties& properties = {});
StreamInfo makeStreamInfo(const StreamDataInfo& dataInfo, const StreamProperties& properties = {});

/// A record of a data stream of one frame a second, whose XML are the stream parameters of a description.
StreamInfo makeStreamInfoFromData(const QMDataInfoNoXml& dataInfo, const StreamProperties& properties = {});

}  // namespace qm_ci
