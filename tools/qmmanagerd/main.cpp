#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

#include "coreapi/platform/brokenpipe.h"
#include "coreapi/platform/interrupts.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmmanager/archive.h"
#include "qmmanager/manager.h"
#include "storage/FileInfo.h"
#include "tools/programlog.h"

namespace {

/// How the program ends. Scripts rely on these numbers; never renumber.
enum ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
};

constexpr const char* kFooter =
    "Serves the archive until SIGTERM or SIGINT comes. When it is ready it writes one\n"
    "line to standard output, 'listening on ADDRESS:PORT'. The archive is a directory\n"
    "with the file 'qmarchive' in it, as 'qmctl import' makes it.\n"
    "Exit status: 0 ended by a signal, 1 a failure, 2 wrong usage.\n"
    "\n"
    "Example:\n"
    "  qmctl import clip.avi --archive /srv/recordings --source gate \\\n"
    "    --start 2011-03-03T10:00:00Z\n"
    "  qmmanagerd --archive /srv/recordings --log-level info";

/// Descriptions of files that nobody uses and that are kept all the same.
constexpr std::uint32_t kCachedDescriptions = 256;

/// Between two looks whether a signal has come; the signal itself ends the wait.
constexpr int kSignalWait = 60'000;  // milliseconds

struct Options {
  std::string sArchive;
  std::string sAddress = "127.0.0.1";
  std::uint16_t uPort = 11001;
  std::uint16_t uTunnelPort = 0;
  std::string sVersion = "4.2";
  std::string sCopyDirectory;
  std::string sImportDirectory;
  std::string sLogLevel;
  std::string sLogFile;
};

void addOptions(CLI::App& app, Options& options) {
  app.add_option("--archive", options.sArchive, "Directory of the archive")->required();
  app.add_option("--bind", options.sAddress, "Address to listen on; 0.0.0.0 for all of this machine")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  app.add_option("--port", options.uPort, "Port to listen on; 0 for any free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--tunnel-port", options.uTunnelPort,
                 "A second port, through which clients can be led to the first; 0 for none")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--rpc-version", options.sVersion,
                 "Version told to clients, who choose their dialect by it: 3.0 to below 4.3")
      ->capture_default_str();
  app.add_option("--copy-dir", options.sCopyDirectory,
                 "The only directory that copies on this machine are written to; without it there are none")
      ->check(CLI::ExistingDirectory);
  app.add_option("--import-dir", options.sImportDirectory,
                 "The only directory that clients add files from; without it they add none")
      ->check(CLI::ExistingDirectory);
  app.add_option("--log-level", options.sLogLevel,
                 "Log from this level up, 'warning' by default: " + qm_programlog::levelNames());
  app.add_option("--log", options.sLogFile, "Log into this file; without it to standard error");
}

/// Throws std::invalid_argument for a text that is no version, and one that isn't served.
JRPCVersion parseVersion(const std::string& sText) {
  JRPCVersion version;
  if (!version.fromText(sText) || version.toText() != sText) {
    throw std::invalid_argument("'" + sText + "' is no version; it is given as MAJOR.MINOR, such as 4.2");
  }
  try {
    qm_manager::Manager::checkVersion(version);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    throw std::invalid_argument(error->getMessage());
  }
  return version;
}

/// A service that knows nothing but how to lead clients to the others of this process.
std::unique_ptr<JRPCTunnelService> startTunnel(const Options& options, const JRPCVersion& version) {
  if (options.uTunnelPort == 0) {
    return nullptr;
  }
  auto pTunnel = std::make_unique<JRPCTunnelService>(JInetAddr(options.sAddress, options.uTunnelPort),
                                                     "StorageManagerTunnel");
  pTunnel->setVersion(version);
  pTunnel->start();
  return pTunnel;
}

void serve(const Options& options, const JRPCVersion& version) {
  qm_platform::InterruptCatcher interrupts(qm_platform::InterruptCatcher::Ignored::kCaught);
  qm_manager::Archive archive(options.sArchive, qm_manager::ArchiveRoot::Creation::kExisting);
  if (interrupts.getCaught() != 0) {
    return;
  }
  qm_manager::Manager::Settings settings;
  settings.address = JInetAddr(options.sAddress, options.uPort);
  settings.version = version;
  settings.sCopyDirectory = options.sCopyDirectory;
  settings.sImportDirectory = options.sImportDirectory;
  qm_manager::Manager manager(archive, settings);
  manager.start();
  const auto pTunnel = startTunnel(options, version);
  if (!(std::cout << "listening on " << options.sAddress << ':' << manager.getPort() << std::endl)) {
    throw std::runtime_error("can't write to standard output");
  }
  while (interrupts.getCaught() == 0) {
    interrupts.await(kSignalWait);
  }
}

int fail(ExitStatus eStatus, const std::string& sReason) {
  std::cerr << "qmmanagerd: " << sReason << '\n';
  return eStatus;
}

int attempt(const Options& options) {
  JRPCVersion version;
  try {
    version = parseVersion(options.sVersion);
    const bool bQuiet = options.sLogLevel.empty() && options.sLogFile.empty();
    qm_programlog::setUp("qmmanagerd", bQuiet ? "warning" : options.sLogLevel, options.sLogFile);
  } catch (const std::invalid_argument& error) {
    return fail(kWrongUsage, error.what());
  }
  try {
    const QMXmlUse xmlUse;
    FileInfo::initCache(kCachedDescriptions);
    serve(options, version);
    FileInfo::closeCache();
    return kDone;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return fail(kFailed, error->getMessage());
  } catch (const std::exception& exception) {
    return fail(kFailed, exception.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  // All threads take it over: who stops reading the log or standard output doesn't end the service.
  const qm_platform::BrokenPipeGuard noBrokenPipes;
  CLI::App app("Serves an archive of recordings to the clients of a storage Manager.", "qmmanagerd");
  app.set_version_flag("--version", "qmmanagerd " QM_VERSION);
  app.footer(kFooter);
  Options options;
  addOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUsage;
  }
  const int iStatus = attempt(options);
  qm_programlog::end();
  return iStatus;
}
