#pragma once

#include <string>

#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;
class Copies;

/// Copies of what a unit holds of a span. The unit is named by SourceName (string) and Fps (integer), the
/// span by TsBackupStartDate and TsBackupEndDate (integers, counts of microseconds since 1601); it may be 72
/// hours long, and something must be recorded in it. What is copied tells RecordedFrames.
///
///     function              further parameters                  answer
///     rpc_getRecordingSize                                      Size, bytes
///     rpc_getStreamInfo     SupportedProtocols                  see below
///     rpc_remoteCopy        BackupPort, ProtocolVersion         empty
///     rpc_localCopy         BackupPath                          empty, when the copy is on the disk
///
/// The two copies also take WithAuthentication (boolean, true when it is missing): whether frames that
/// authenticate others are copied too.
///
/// rpc_getStreamInfo tells what a client has to know before it has itself sent a remote copy. When the client
/// knows "QM_TPKT", that is ProtocolVersion, and the description of the stream comes with the frames. Else
/// the answer holds the description as StreamInfo in the form of "QM_RCPY30", for a recording that has one
/// description throughout and is of a coding that this form can carry; any other is refused. In both forms
/// follow, as strings, authoringApp, the parameters of the recorded stream, and startTimeStamp and
/// endTimeStamp: what the copy will span.
///
/// rpc_remoteCopy connects back to the client that calls, at its BackupPort (see Copies); without a
/// ProtocolVersion "QM_RCPY30" is meant. rpc_localCopy writes into the directory for copies (see
/// CopyDirectory), which may be empty for none.
void addCopyHandlers(Handlers& handlers, const Archive& archive, Copies& copies,
                     const std::string& sCopyDirectory);

}  // namespace qm_manager
