#pragma once

#include <functional>
#include <string>

#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;

/// Lets a client add a media file of this machine to the archive:
///
///     function     parameters
///     rpc_addFile  FileName, DiskSpaceName, SourceName, AlarmName, StartDate (strings); all but the first
///     and
///                  the third may be empty
///
/// FileName is looked up in the import directory alone: it is a plain name without directories, and a
/// symbolic link must end in that directory. The recording is of the source given, at the file's own rate (0
/// for sound). It begins at StartDate, a date as hosts give it, or else at the file's own dates, if it has
/// any. With AlarmName an alarm of that name, raised when it begins, covers it. There is one disk space, so
/// that DiskSpaceName isn't read.
///
/// Recording and alarm are on the disk when the function is done, however long that takes: a client waits so
/// long. One file is added to a unit at a time; a second one is refused meanwhile. `isEnding` is asked now
/// and then: once it tells that the Manager ends, the work ends with whole slices, as refused. It is called
/// on the connections' threads.
void addAddFileHandlers(Handlers& handlers, Archive& archive, const std::string& sImportDirectory,
                        std::function<bool()> isEnding);

}  // namespace qm_manager
