#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "coreapi/qmci/streaminfo.h"
#include "tests/coreapi/qmci/streamsamples.h"
#include "tests/support/scriptedmanager.h"

namespace qm_test {

// What a Manager pushes, as bytes on the wire.

/// The date of the first frame, in microseconds; the others follow 40 ms apart.
inline constexpr std::uint64_t kFirstPushed = 12943620000000000;

/// A frame of a remote copy, or, without payload, its end.
std::string copied(const std::string& sPayload, std::uint64_t uNumber = 1);

/// A TPKT, or, without bytes, the end of the stream.
std::string tpkt(const std::string& sFrame);

/// A frame with its record's header of `uHeader` bytes in a TPKT stream.
std::string framed(const std::string& sPayload, std::uint16_t wKind = 2, std::uint32_t uHeader = 48,
                   std::uint64_t uNumber = 1);

/// The description of a stream in a TPKT stream.
std::string description(const qm_ci::StreamInfo& info = videoStream());

/// Makes a Manager push bytes.
class Pushing {
 public:
  /// With an empty protocol the description comes in the answer and the remote copy stream is meant.
  Pushing(ScriptedManager& manager, const std::string& sProtocol,
          const qm_ci::StreamInfo& info = videoStream());
  ~Pushing() { join(); }
  Pushing(const Pushing&) = delete;
  Pushing& operator=(const Pushing&) = delete;

  /// The bytes go out when the call is answered; then the connection ends, or with `bStall` stays until
  /// the client closes it.
  void push(const std::string& sWire, bool bStall = false);

  /// Waits until the client has closed the connection.
  void join();

 private:
  ScriptedManager& m_manager;
  std::thread m_pusher;
};

}  // namespace qm_test
