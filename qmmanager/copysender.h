#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmstream/oframesocket.h"
#include "coreapi/qmstream/streamfactory.h"

namespace qm_manager {

/// Puts the frames of a copy into a stream, in the form of its protocol:
///
///     QM_TPKT     a frame of kind 5 with the stream's description in its native form, wherever it begins
///                 or changes; each frame as the 48 bytes of its header in network order, and the payload
///     QM_RCPY30   each frame as what its socket makes of it. The description has gone ahead; there is no
///                 form for another one
///
/// A frame without payload isn't sent: in the second form it would read as the end. Payload is only looked
/// at. One thread.
class CopySender {
 public:
  /// Throws what the protocol's socket throws. `pConnection` is closed then.
  CopySender(const qm_stream::StreamProtocol& protocol, std::unique_ptr<JOSocket> pConnection);

  /// Ends the stream with its marker and waits for the reader; see OFrameSocket. Not after a failure or
  /// `cut`.
  ~CopySender() = default;
  CopySender(const CopySender&) = delete;
  CopySender& operator=(const CopySender&) = delete;

  // Each throws what the connection throws.

  /// The first one is always taken. Throws JTextError for another one where there is no form for it.
  void sendDescription(const qm_ci::StreamInfo& info);

  /// A packet record of one packet.
  void sendFrame(const qm_ci::ConstBitstream& frame);

  /// Sends what is on its way still, and lets the stream end without its marker.
  void cut();

 private:
  std::array<std::uint8_t, qm_ci::Bitstream::m_uMinQMCIBitstreamSize> m_header{};
  bool m_bNative;             ///< records and descriptions travel as they are
  bool m_bDescribed = false;  ///< a description has been taken
  std::unique_ptr<qm_stream::OFrameSocket> m_pOutput;
};

}  // namespace qm_manager
