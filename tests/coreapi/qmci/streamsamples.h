#pragma once

#include <functional>
#include <string>
#include <vector>

#include "coreapi/qmci/streaminfo.h"
#include "tests/support/thrownby.h"

namespace qm_test {

/// A video stream of 352 x 288 pixels, 25/1 pictures a second, frames of at most 1000 bytes.
qm_ci::StreamInfo videoStream(const std::string& sProperties = {}, const char* szMIMEType = "video/x-qmv1",
                              std::uint32_t uRateNumerator = 25);

/// An audio stream of 8000 samplings a second, 2 channels of 16 bits, 160 samplings a frame.
qm_ci::StreamInfo audioStream(const std::string& sProperties = {},
                              const char* szMIMEType = "audio/x-qmpcm-internal");

/// A data stream of 25/2 frames a second of at most 500 bytes.
qm_ci::StreamInfo dataStream(const std::string& sProperties = {},
                             const char* szMIMEType = "application/x-qmpluginstream",
                             const std::string& sDescription = "<d/>");

/// What damaged descriptions are made from.
namespace damage {

/// One of each kind with a property.
qm_ci::StreamInfo video();
qm_ci::StreamInfo audio();
qm_ci::StreamInfo data();

/// Puts another word at an offset of a block.
std::function<void(std::vector<std::uint8_t>&)> word(std::size_t at, std::uint32_t uValue);

}  // namespace damage

}  // namespace qm_test
