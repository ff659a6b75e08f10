#include <algorithm>
#include <exception>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JInProcessForwardOutput.h"
#include "coreapi/qmutils/log/JLogDebugOutput.h"
#include "coreapi/qmutils/log/JLogFileOutput.h"
#include "coreapi/qmutils/log/JLogMsgUdpInput.h"
#include "coreapi/qmutils/log/JLogMsgUdpOutput.h"
#include "coreapi/qmutils/log/JLogRotatingFile.h"
#include "coreapi/qmutils/log/JLogState.h"
#include "coreapi/qmutils/log/JLogSyslog.h"
#include "coreapi/qmutils/log/JLogThreadedInput.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"

using qm_utils::IRegistryReadAccess;
using qm_utils::LogState;
using qm_utils::logState;

namespace {

/// Milliseconds that outputs get for what they still hold when others take their place.
constexpr int kReplaceTimeout = 1000;

/// The flags of the first configuration when nobody has set any.
constexpr std::uint32_t kFirstFlags = JLog::kRegistry | JLog::kConsoleIfNoOther;

constexpr const char* kMasterName = "master-input";
constexpr const char* kSlaveName = "slave-output";

using Output = std::unique_ptr<JLog::GenericOutput>;

Output createConsole(const std::string& sName, const IRegistryReadAccess& key) {
  return std::make_unique<JLogDebugOutput>(sName, key);
}

Output createRotatingFile(const std::string& sName, const IRegistryReadAccess& key) {
  bool bAllowed = false;
  key.getBool("AllowMultiple", bAllowed);
  return bAllowed ? std::make_unique<JLogRotatingFile>(sName, key) : nullptr;
}

Output createSyslog(const std::string& sName, const IRegistryReadAccess& key) {
  return std::make_unique<JLogSyslog>(sName, key);
}

Output createInProcess(const std::string& sName, const IRegistryReadAccess& key) {
  return std::make_unique<JInProcessForwardOutput>(sName, key);
}

/// A type of output that the configuration can name: its name, in lower case, and its maker, which may give
/// null when the key holds something that speaks against the output.
struct OutputType {
  std::string_view sType;
  Output (*create)(const std::string& sName, const IRegistryReadAccess& key);
  bool bConsole;
};

constexpr OutputType kOutputTypes[] = {
    {"console", createConsole, true},
    {"file", createRotatingFile, false},
    {"inprocess", createInProcess, false},
    {"syslog", createSyslog, false},
};

std::string lowerCase(std::string sText) {
  std::transform(sText.begin(), sText.end(), sText.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return sText;
}

/// The type of output that a key asks for; empty when it names none.
std::string readType(const IRegistryReadAccess& key) {
  std::string sType;
  if (!key.getString("LogType", sType)) {
    key.getString("Type", sType);
  }
  return sType;
}

/// Calls `visit` with the name and the key of each sub-key of the log's configuration, in their order.
template <typename Visit>
void forEachSubKey(Visit visit) {
  LogState& state = logState();
  std::string sPath;
  qm_utils::RegistryRoot root{};
  {
    const JAutoLock lock(state.mutex);
    sPath = state.sKeyPath;
    root = state.root;
  }
  JSystemRegistryKey key;
  if (!key.open(root, sPath, qm_utils::kRegistryRead, true)) {
    return;
  }
  std::vector<std::string> names;
  key.getSubKeys(names);
  for (const std::string& sName : names) {
    std::unique_ptr<IRegistryReadAccess> pKey;
    if (key.openSubKey(sName, pKey, true)) {
      visit(sName, *pKey);
    }
  }
}

/// One run of the configuration.
class Configuration {
 public:
  explicit Configuration(std::uint32_t uFlags) : m_uFlags(uFlags) {}

  /// Lets the input of the master come or go. One that goes is the caller's to end.
  std::shared_ptr<JLog::GenericInput> updateMaster() {
    if (!has(JLog::kMaster)) {
      return takeMaster();
    }
    if (!hasMaster()) {
      attempt(kMasterName, [] {
        JLog::addLogInput(
            std::make_unique<JLogMsgUdpInput>(kMasterName, JLog::kMasterPort, JLog::kMasterBuffer));
      });
    }
    return nullptr;
  }

  void addOutputs() {
    if (has(JLog::kSlave)) {
      attempt(kSlaveName, [] {
        JLog::addLogOutput(std::make_unique<JLogMsgUdpOutput>(kSlaveName, "127.0.0.1", JLog::kMasterPort,
                                                              JLog::kMasterBuffer));
      });
    }
    if (has(JLog::kRegistry)) {
      attempt("registry", [this] {
        forEachSubKey([this](const std::string& sName, const IRegistryReadAccess& key) {
          attempt(sName, [&] { addFromKey(sName, key); });
        });
      });
    }
    if (has(JLog::kStandardError)) {
      attempt("stderr-output",
              [] { JLog::addLogOutput(std::make_unique<JLogFileOutput>("stderr-output", "&2")); });
    }
    if ((has(JLog::kConsole) && !m_bConsole) ||
        (has(JLog::kConsoleIfNoOther) && qm_utils::logOutputs().empty())) {
      attempt("console", [] { JLog::addLogOutput(std::make_unique<JLogDebugOutput>("console")); });
    }
  }

 private:
  bool has(JLog::Flags flag) const { return (m_uFlags & flag) != 0; }

  void addFromKey(const std::string& sName, const IRegistryReadAccess& key) {
    const std::string sType = lowerCase(readType(key));
    for (const OutputType& type : kOutputTypes) {
      if (type.sType != sType) {
        continue;
      }
      if (Output pOutput = type.create(sName, key)) {
        JLog::addLogOutput(std::move(pOutput));
        m_bConsole = m_bConsole || type.bConsole;
      }
    }
  }

  static auto findMaster(LogState& state) {
    return std::find_if(state.inputs.begin(), state.inputs.end(),
                        [](const auto& pInput) { return pInput->getName() == kMasterName; });
  }

  static bool hasMaster() {
    LogState& state = logState();
    const JAutoLock lock(state.mutex);
    return findMaster(state) != state.inputs.end();
  }

  static std::shared_ptr<JLog::GenericInput> takeMaster() {
    LogState& state = logState();
    const JAutoLock lock(state.mutex);
    std::shared_ptr<JLog::GenericInput> pMaster;
    const auto found = findMaster(state);
    if (found != state.inputs.end()) {
      pMaster = std::move(*found);
      state.inputs.erase(found);
    }
    return pMaster;
  }

  template <typename Step>
  static void attempt(const std::string& sName, Step step) {
    try {
      step();
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      tellFailure(sName, error->getMessage());
    } catch (const std::exception& error) {
      tellFailure(sName, error.what());
    }
  }

  static void tellFailure(const std::string& sName, const std::string& sFailure) {
    JLog::log(qm_err::kLogError, "Log output '%s' not created: %s", sName.c_str(), sFailure.c_str());
  }

  std::uint32_t m_uFlags;
  bool m_bConsole = false;  ///< a console output is there
};

/// What the flags of a call stand for.
std::uint32_t effectiveFlags(std::uint32_t uFlags) {
  LogState& state = logState();
  const JAutoLock lock(state.mutex);
  if (uFlags == JLog::kNoChange) {
    uFlags = state.uFlags;
  }
  return uFlags == JLog::kNoChange ? kFirstFlags : uFlags;
}

/// Configures the log; `configuring` is held. Returns an input that is to end when it isn't held any more: a
/// thread of it may be waiting for a configuration of its own.
std::shared_ptr<JLog::GenericInput> run(LogState& state, std::uint32_t uFlags) {
  state.bInitialised = true;
  uFlags = effectiveFlags(uFlags);
  const qm_utils::KeptBackRecords forNewOutputs;
  Configuration configuration(uFlags);
  std::shared_ptr<JLog::GenericInput> pEnded = configuration.updateMaster();
  JLog::stopOutputs(kReplaceTimeout, true);
  JLog::deleteOutputs();
  configuration.addOutputs();
  {
    const JAutoLock lock(state.mutex);
    state.uFlags = uFlags;
  }
  state.bReady.store(true, std::memory_order_release);
  return pEnded;
}

}  // namespace

void JLog::init(std::uint32_t uFlags, const std::string& sKeyPath, qm_utils::RegistryRoot root) {
  LogState& state = logState();
  std::shared_ptr<GenericInput> pEnded;
  const JAutoLock configuring(state.configuring);
  {
    const JAutoLock lock(state.mutex);
    state.sKeyPath = sKeyPath;
    state.root = root;
  }
  pEnded = run(state, uFlags);
}

void JLog::configure(std::uint32_t uFlags) {
  LogState& state = logState();
  std::shared_ptr<GenericInput> pEnded;
  const JAutoLock configuring(state.configuring);
  pEnded = run(state, uFlags);
}

void JLog::reload() {
  LogState& state = logState();
  {
    const JAutoLock lock(state.mutex);
    if ((state.uFlags & kSlave) == 0) {
      return;
    }
  }
  log(qm_err::kLogNone, "%s", JLogThreadedInput::kReloadOrder);
}

std::vector<std::string> JLog::getLogDirectories() {
  std::vector<std::string> directories;
  forEachSubKey([&](const std::string&, const IRegistryReadAccess& key) {
    const std::string sType = readType(key);
    std::string sDirectory;
    if ((sType == "File" || sType == "FILE") && key.getString("LogDirectory", sDirectory)) {
      directories.push_back(sDirectory);
    }
  });
  return directories;
}
