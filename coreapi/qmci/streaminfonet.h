#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "coreapi/qmci/streaminfo.h"

class JParams;

/// The two forms in which the description of a stream crosses the network, both as the binary parameter
/// "StreamInfo" of a list.
///
/// The native form is the record with the numbers of its description swapped: they are big-endian then, while
/// `type`, `infoSize` and the numbers of a data stream's description stay little-endian.
///
/// The R30 form, which older peers understand, is a block of its own, StreamInfoNet, little-endian:
///
///     offset  width  field
///          0      4  type
///          4      4  major       3
///          8      4  minor       6
///         12      4  infoSize    bytes before the parameter text
///         16         by type
///   infoSize         parameters  text of a JParams with "," between parameters, zero-terminated; a block
///   that
///                                ends here has none
///
///     video                          audio                         data
///     16  4  width                   16  4  samples per frame      16  4  ledwFPSNum
///     20  4  height                  20     WAVEFORMATEX, cbSize 0 20  4  ledwFPSDen
///     24  4  standard code           38  2  zero                   24  4  ledwFrameSize
///     28  4  picture rate numerator                                28  4  size of the texts + 16
///     32  4  picture rate denominator                              32     texts of the StreamDataInfo
///     36  4  frame kind
///     40  4  decimation code
///     44     BITMAPINFOHEADER and its extra bytes
namespace qm_ci {

/// Reverses the numbers of a record's description in place, which turns the native network form into a record
/// and back. A video description is 22 words, its last offset included. A block that is too short for its
/// type is a failed assertion and stays as it is.
void swapStreamInfo(std::span<std::uint8_t> record) noexcept;

/// Adds the native form to a list; returns its bytes.
std::uint32_t writeStreamInfo(const StreamInfo& info, JParams& params);

/// Reads the native form; returns the bytes of the record, or 0, after a failed assertion, when `ppsOut` is
/// null. Throws MissingParameterError and TypeMismatchError of JVariant, and JTextError for a record that is
/// wrong; `*ppsOut` keeps what it held then.
std::uint32_t readStreamInfo(const JParams& params, std::unique_ptr<StreamInfo>* ppsOut);

/// Adds the R30 form to a list; returns the bytes before its parameter text. Throws JTextError for a stream
/// that older peers don't know.
std::uint32_t writeStreamInfoR30(const StreamInfo& info, JParams& params);

/// Reads the R30 form; the rest is as for `readStreamInfo`. `QMXml::initialize` comes first. Throws
/// JUnimplementedError for a wave format other than PCM and MP3.
std::uint32_t readStreamInfoR30(const JParams& params, std::unique_ptr<StreamInfo>* ppsOut);

/// What a picture of a size is to an older peer.
struct PictureStandard {
  std::uint32_t uStandard = 0;
  std::uint32_t uFrameKind = 0;
  std::uint32_t uDecimation = 0;
};
PictureStandard getPictureStandard(std::uint32_t uWidth, std::uint32_t uHeight) noexcept;

}  // namespace qm_ci
