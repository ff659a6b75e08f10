#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/rpc/jlineio.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController.h"
#include "qmmanager/archive.h"
#include "qmmanager/manager.h"
#include "tests/support/tempdir.h"

namespace qm_test {

/// The date of frame `i` of a recording, as hosts write it; frames of 40 ms from 03/03/2011 08:00:00 on.
std::string frameDate(std::uint64_t i);

/// A client that writes request lines and reads answer lines, and knows no more of the protocol. Throws what
/// the connection throws; an answer must come within a minute.
class LineClient : public JLineIO {
 public:
  explicit LineClient(std::uint16_t uPort);

  /// The answer, or "closed" when the other side has ended the connection.
  std::string ask(const std::string& sRequest);
};

/// An archive in a directory of its own, and when `serve` was called a Manager for it with a client. Holds
/// the process's cache of descriptions.
class ServedArchive {
 public:
  ServedArchive();
  ~ServedArchive();
  ServedArchive(const ServedArchive&) = delete;
  ServedArchive& operator=(const ServedArchive&) = delete;

  std::string root() const { return temp.path("archive"); }

  /// The directory of a unit, which is made. Before `serve`.
  std::string unit(const std::string& sSource, std::int32_t iFps) const;

  /// Writes a slice of so many frames, from one on, with the payloads that `numbered` gives them. Returns its
  /// path.
  std::string record(const std::string& sSource, std::int32_t iFps, std::uint64_t uFirst,
                     std::uint64_t uFrames, const qm_ci::StreamInfo& stream, std::size_t uSize = 50,
                     std::uint16_t wPictureType = 1) const;

  /// Takes the archive, starts a Manager and connects to it, with what was there before gone first.
  void serve(const qm_manager::Manager::Settings& settings = {});
  void stop();

  /// All rows of a query.
  std::vector<std::string> rows(std::int32_t iQuery);

  /// The newest message of the client, and no older ones.
  std::string message();

  /// What a search finds, "SOURCE/FPS FIRST-LAST" by the numbers of frames.
  std::vector<std::string> found(const std::string& sCriteria);

  /// One request line by itself, and its answer.
  std::string ask(const std::string& sRequest) const;

  TempDir temp;
  std::unique_ptr<qm_manager::Archive> pArchive;
  std::unique_ptr<qm_manager::Manager> pManager;
  std::unique_ptr<StorageAccessController> pControl;
};

}  // namespace qm_test
