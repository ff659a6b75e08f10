#include "coreapi/qmutils/registry/registryfile.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "coreapi/platform/filepath.h"
#include "coreapi/platform/systemdirectory.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jlightreg.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrybranch.h"
#include "coreapi/qmutils/registry/registrypath.h"
#include "coreapi/qmutils/registry/registrytextform.h"
#include "coreapi/qmutils/socket/fileoperations.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

namespace qm_utils {

namespace {

constexpr const char* kFileName = "software.reg";
constexpr std::string_view kEmptyText = "REGEDIT4\n\n";

/// Sections that the thread is in.
thread_local int t_iSections = 0;

std::string systemPath() {
  return qm_platform::systemDirectory(kFileName) + "/" + kFileName;
}

/// Empties the branch; the key itself stays.
void clearBranch() {
  JLightRegistryKey branch;
  if (!branch.open(RegistryRoot::kLocalMachine, RegistryFile::kBranch, true)) {
    return;
  }
  std::vector<std::string> names;
  branch.getSubKeys(names);
  for (const std::string& sName : names) {
    branch.deleteKey(sName, true);
  }
  std::vector<RegistryValue> values;
  branch.getValues(values);
  for (const RegistryValue& value : values) {
    branch.deleteValue(value.sName, true);
  }
}

/// Fails when the branch holds what the file would give back in another form, or not at all. Keys in memory,
/// and names without quotes in a file that was written by hand, may hold anything.
void requireTextForm() {
  std::unique_ptr<IRegistryReadAccess> pTop =
      lightRegistryTree().openKey(RegistryRoot::kLocalMachine, RegistryFile::kBranch, false);
  for (const KeyCopy& copy : readBranch(std::move(pTop))) {
    if (!hasTextForm(joinPath(RegistryFile::kBranch, copy.sPath))) {
      QM_THROW(JTextError, "The configuration file can't hold the key '%s'", copy.sPath.c_str());
    }
    for (const RegistryValue& value : copy.values) {
      const std::string_view data(reinterpret_cast<const char*>(value.data.data()), value.data.size());
      if (isTextType(value.uType) && !hasTextForm(value.sName, value.uType, data)) {
        QM_THROW(JTextError, "The configuration file can't hold the value '%s' of the key '%s'",
                 value.sName.c_str(), copy.sPath.c_str());
      }
    }
  }
}

void writeBranch(const std::string& sPath) {
  JLightRegistryKey().create(RegistryRoot::kLocalMachine, RegistryFile::kBranch);
  requireTextForm();
  JFileSocket::ReplaceWithRollBack(sPath, [](JOSocket& socket) {
    exportRegistry(lightRegistryTree(), socket, fullPath(RegistryRoot::kLocalMachine, RegistryFile::kBranch));
  });
}

void makeEmptyFile(const std::string& sPath) {
  createDirectories(qm_platform::directoryOf(sPath));
  JFileSocket::ReplaceWithRollBack(
      sPath, [](JOSocket& socket) { socket.write(kEmptyText.data(), kEmptyText.size()); });
}

}  // namespace

RegistryFile& RegistryFile::get() {
  static RegistryFile& file = *new RegistryFile;
  return file;
}

bool RegistryFile::isBusyHere() noexcept {
  return t_iSections != 0;
}

RegistryFile::Section::Section(RegistryFile& file) : m_lock(file.m_mutex) {
  ++t_iSections;
}

RegistryFile::Section::~Section() {
  --t_iSections;
}

std::string RegistryFile::currentPath() const {
  return m_sPath.empty() ? systemPath() : m_sPath;
}

/// Reads a file in place of what the branch holds.
void RegistryFile::load(const std::string& sPath) {
  m_bLoaded = false;
  const std::unique_ptr<JFileSocket> pFile = JFileSocket::OpenReadWithRollBack(sPath);
  m_sPath = sPath;
  m_bChanged = false;
  clearBranch();
  importRegistry(lightRegistryTree(), *pFile);
  m_bLoaded = true;
}

/// As `load`; false, and nothing has changed, without a file.
bool RegistryFile::loadIfThere(const std::string& sPath) {
  try {
    load(sPath);
    return true;
  } catch (JSysError* pError) {
    qm_err::CaughtError error(pError);
    if (pError->getCode() != ENOENT && pError->getCode() != ENOTDIR) {
      m_sPath = sPath;
      error.rethrow();
    }
    return false;
  }
}

void RegistryFile::ensureRead() {
  std::string sFailure;
  try {
    const Section section(*this);
    if (m_sPath.empty()) {
      loadIfThere(systemPath());
    }
    return;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    sFailure = error->getMessage();
  }
  qm_err::log(qm_err::kLogError, "The configuration file can't be read: %s", sFailure.c_str());
}

void RegistryFile::reload() {
  const Section section(*this);
  if (!loadIfThere(currentPath())) {
    m_sPath.clear();
    m_bChanged = false;
    clearBranch();
  }
}

void RegistryFile::prepareChange() {
  if (m_bLoaded) {
    return;
  }
  const std::string sPath = currentPath();
  if (!loadIfThere(sPath)) {
    makeEmptyFile(sPath);
    load(sPath);
  }
}

void RegistryFile::save() {
  const Section section(*this);
  if (m_bChanged && m_bLoaded) {
    writeBranch(m_sPath);
    m_bChanged = false;
  }
}

void RegistryFile::saveAtClose() noexcept {
  if (!m_bChanged || m_iBatches != 0) {
    return;
  }
  try {
    save();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "The configuration file can't be written: %s",
                error->getMessage().c_str());
  } catch (const std::exception& error) {
    qm_err::log(qm_err::kLogError, "The configuration file can't be written: %s", error.what());
  }
}

void RegistryFile::flush(bool bReload, const char* szPath) {
  const Section section(*this);
  const std::string sPath = szPath != nullptr ? szPath : systemPath();
  m_bLoaded = m_bLoaded && !bReload;
  if (!m_bLoaded) {
    load(sPath);
    return;
  }
  writeBranch(sPath);
  if (sPath == m_sPath) {
    m_bChanged = false;
  }
}

RegistryFile::Batch::Batch() {
  ++get().m_iBatches;
}

RegistryFile::Batch::~Batch() {
  if (!m_bEnded) {
    --get().m_iBatches;
    get().saveAtClose();
  }
}

void RegistryFile::Batch::end() {
  m_bEnded = true;
  --get().m_iBatches;
  get().save();
}

}  // namespace qm_utils
