#pragma once

#include <memory>
#include <string>

#include "coreapi/qmutils/rpc/jrpctunnelservice.h"
#include "coreapi/qmutils/rpc/jrpcversion.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "qmmanager/copies.h"
#include "qmmanager/handlers.h"

namespace qm_manager {

class Archive;

/// The service by which clients search an archive, change it and copy from it.
///
/// Each function belongs to a family (see handlers.h). What a function refuses, and whatever fails in it, is
/// answered with the string "Error": the connection and the service live on. A change is on the disk when its
/// answer goes out without one.
///
/// `start` and `stop` belong to the owner, who keeps the archive alive as long as this. No lock is held while
/// an answer is written; the archive's locks are those of Archive and ArchiveUnit.
class Manager final : public JRPCTunnelService {
 public:
  struct Settings {
    /// Where it listens; port 0 lets the system choose one.
    JInetAddr address{"127.0.0.1", 0};

    /// What it tells its clients, who choose their dialect by it. See `checkVersion`.
    JRPCVersion version{4, 2};

    /// The only directory that copies on this side go to, and the only one that files are added from. Empty:
    /// the functions that need it refuse.
    std::string sCopyDirectory = {};
    std::string sImportDirectory = {};

    Copies::Settings copies = {};
  };

  /// Throws as `checkVersion`, and JSysError "bind".
  Manager(Archive& archive, const Settings& settings);
  ~Manager() override;

  bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                ConnectionId uConnection) override;

  /// As JRPCTunnelService; copies that are on their way are broken off first.
  void stop();

  /// Throws JTextError for a version whose dialect the Manager doesn't speak: all but 3.x and 4.0 to 4.2.
  static void checkVersion(const JRPCVersion& version);

 private:
  Copies m_copies;
  Handlers m_handlers;
};

}  // namespace qm_manager
