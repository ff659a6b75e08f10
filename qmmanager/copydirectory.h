#pragma once

#include <set>
#include <string>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace qm_manager {

class Copies;
class RecordedFrames;

/// The directory on this side that copies are written to, and nothing outside it. A copy has a work name,
/// NAME.copying, until it is whole and on the disk; one that fails leaves nothing.
///
/// Any thread, several copies at once. No lock is held while one is written.
class CopyDirectory {
 public:
  /// The longest name of a copy, bytes; it must leave room for what is added to it.
  static constexpr std::size_t kMaxName = 200;

  /// An empty path stands for no directory: every copy is refused.
  explicit CopyDirectory(std::string sPath) : m_sPath(std::move(sPath)) {}
  CopyDirectory(const CopyDirectory&) = delete;
  CopyDirectory& operator=(const CopyDirectory&) = delete;

  /// Throws JTextError unless there is a directory and the name is one of a media file in it: no path, no
  /// leading point, nothing but printable characters, an extension that tells the writer.
  void check(const std::string& sName) const;

  /// Writes frames, which stand at their first description, into a file whose kind its extension tells;
  /// where the description changes on the way, into another one with a number behind its name, as in
  /// gate.asf, gate1.asf, gate2.asf. The files are on the disk when this returns.
  ///
  /// `properties` become parameters of each file's stream, `sAuthoringApp` one of the file. Throws JTextError
  /// when a file is there already or is just being written, when the recording can't be read to its end and
  /// when `copies` are stopped on the way, and what writing throws.
  void write(const std::string& sName, RecordedFrames& frames, const JParams& properties,
             const std::string& sAuthoringApp, const Copies& copies);

 private:
  class Writing;

  const std::string m_sPath;
  JMutex m_mutex;
  std::set<std::string> m_inUse;  ///< names of files that are being written
};

}  // namespace qm_manager
