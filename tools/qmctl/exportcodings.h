#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "coreapi/qmci/streaminfo.h"

extern "C" {
#include <libavcodec/codec_par.h>
}

struct AVCodecContext;
struct AVCodecParserContext;

namespace qmctl {

struct FreeParameters {
  void operator()(AVCodecParameters* pParameters) const { avcodec_parameters_free(&pParameters); }
};

using CodingPtr = std::unique_ptr<AVCodecParameters, FreeParameters>;

/// How a stream is coded, by its description: the four-character code or the MIME type, the size of the
/// picture or the form of the sound, the coding parameters. Null for a coding that no player knows.
/// `QMXml::initialize` comes first.
CodingPtr codingOf(const qm_ci::StreamInfo& streamInfo);

/// Whether frames of a coding may carry what a container wants to have in its header.
bool hasHeaderInFrames(const AVCodecParameters& coding) noexcept;

/// Takes the coding parameters that a frame carries, if it does.
void takeHeader(AVCodecParameters& coding, std::span<const std::uint8_t> frame);

/// Finds out whether pictures are shown in another order than they are stored in. Frames have one time, which
/// doesn't tell then when each is shown.
class PictureOrder {
 public:
  explicit PictureOrder(const AVCodecParameters& coding);
  ~PictureOrder();
  PictureOrder(const PictureOrder&) = delete;
  PictureOrder& operator=(const PictureOrder&) = delete;

  /// Whether a picture is shown before one that is stored in front of it. False for a coding without such
  /// pictures.
  bool isMovedForward(std::span<const std::uint8_t> picture);

 private:
  AVCodecParserContext* m_pParser;
  AVCodecContext* m_pContext;
};

/// Sets the coding parameters. Throws `Failure` without memory.
void setExtradata(AVCodecParameters& coding, std::span<const std::uint8_t> bytes);

}  // namespace qmctl
