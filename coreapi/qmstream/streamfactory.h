#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmstream/oframesocket.h"

class JParams;
class JRPCController;

/// The protocols under which media streams travel, and the choice of one. All of it is constant; any thread.
namespace qm_stream {

/// Kinds of protocols. Never renumber.
inline constexpr std::uint32_t kPulledProtocol = 0;  ///< a client can be asked to pull it
inline constexpr std::uint32_t kOtherProtocol = 1;

/// A row of the table.
struct StreamProtocol {
  const char* szId;
  std::uint32_t uKind;

  /// Makes the sending socket around a connection, which it takes over. `sParams` is the text form of a
  /// parameter list. Null when the connection doesn't suit the protocol; it is closed then. Throws what the
  /// socket's constructor throws, and JUnimplementedError for a protocol that is known by name only.
  std::unique_ptr<OFrameSocket> (*createOSocket)(std::unique_ptr<JOSocket> pInner,
                                                 const std::string& sParams);

  /// Makes the receiving socket; the rest is as for `createOSocket`. Controller and mask may be null and stay
  /// the caller's. A protocol that names its sockets after the connection ignores `sName`.
  std::unique_ptr<IFrameSocket> (*createISocket)(std::unique_ptr<JISocket> pInner,
                                                 JRPCController* pController, const std::string& sParams,
                                                 std::uint32_t* pTraceMask, const std::string& sName);

  /// Stores a stream's description in a list, in the form of the protocol's generation; reads it back. See
  /// `qm_ci::writeStreamInfo` and `qm_ci::writeStreamInfoR30`.
  std::uint32_t (*writeStreamInfo)(const qm_ci::StreamInfo& info, JParams& params);
  std::uint32_t (*readStreamInfo)(const JParams& params, std::unique_ptr<qm_ci::StreamInfo>* ppsOut);
};

/// The row of an id, or null.
const StreamProtocol* findProtocol(std::string_view sId) noexcept;

/// Adds the ids, of all protocols or those of a kind, to a list, in the table's order: the best first.
void listProtocols(std::vector<std::string>& ids);
void listProtocols(std::vector<std::string>& ids, std::uint32_t uKind);

/// Puts the same ids, joined by commas, in the place of a text; returns their number.
std::size_t protocolText(std::string& sText);
std::size_t protocolText(std::string& sText, std::uint32_t uKind);

/// Adds that text to a list as "SupportedProtocols"; false, and nothing added, when there is no id.
bool addSupportedProtocols(JParams& params);
bool addSupportedProtocols(JParams& params, std::uint32_t uKind);

/// Reads "SupportedProtocols"; false when it is missing. Throws TypeMismatchError of JVariant.
bool getSupportedProtocols(const JParams& params, std::string& sText);

/// Adds the ids in it, which commas, blanks and tabs separate, to a list; false when there are none.
bool getSupportedProtocols(const JParams& params, std::vector<std::string>& ids);

/// The first row of the table whose id stands in a text of ids; null when there is none. The text's own order
/// doesn't matter.
const StreamProtocol* chooseProtocol(std::string_view sText);

}  // namespace qm_stream
