#pragma once

#include <optional>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/params/jparams.h"
#include "storage/ASFIO/asfheaderreader.h"

enum class AsfStreamKind { kVideo, kAudio, kData, kOther };

/// Makes the description of a stream out of its properties in a header, adds its parameters to `params`, and
/// says what kind of stream it is. Nothing for a stream that the system can't describe; a parameter text that
/// doesn't parse is logged and left out. Throws JTextError for audio whose description is damaged, and
/// JUnimplementedError for an audio coding that isn't known. `QMXml::initialize` comes first.
std::optional<qm_ci::StreamInfo> readAsfStream(const AsfStreamProperties& properties, JParams& params,
                                               AsfStreamKind& eKind);
