#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jlightreg.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrybranch.h"
#include "coreapi/qmutils/registry/registrytextform.h"
#include "coreapi/qmutils/socket/jfilesocket.h"

// The text form of configuration keys. Whatever was read of a text, up to its damage, must be written and
// read back as the same keys and values, unless one of them has a form that only lines written by hand can
// have.

namespace {

constexpr auto kRoot = qm_utils::RegistryRoot::kLocalMachine;
constexpr const char* kTop = "HKEY_LOCAL_MACHINE\\top";

void require(bool bCondition) {
  if (!bCondition) {
    std::abort();
  }
}

/// A file in memory.
class MemoryFile {
 public:
  MemoryFile() : m_file(memfd_create("text", MFD_CLOEXEC)) {}
  explicit MemoryFile(const std::string& sText) : MemoryFile() {
    m_file.write(sText.data(), sText.size());
    m_file.rewind();
  }

  JFileSocket& get() { return m_file; }

  std::string contents() {
    m_file.rewind();
    std::string sText;
    char piece[4096];
    while (const std::size_t uCount = m_file.read(piece, sizeof piece)) {
      sText.append(piece, uCount);
    }
    return sText;
  }

 private:
  JFileSocket m_file;
};

void clear() {
  JLightRegistryKey root;
  root.open(kRoot, "");
  std::vector<std::string> names;
  root.getSubKeys(names);
  for (const std::string& sName : names) {
    root.deleteKey(sName);
  }
}

/// Reads a text; false when it is damaged.
bool read(const std::string& sText, const char* szPrefix) {
  try {
    MemoryFile file(sText);
    importRegistry(qm_utils::lightRegistryTree(), file.get(), szPrefix);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

std::string write() {
  MemoryFile file;
  exportRegistry(qm_utils::lightRegistryTree(), file.get(), kTop);
  return file.contents();
}

bool comesBack() {
  for (const qm_utils::KeyCopy& copy :
       qm_utils::readBranch(qm_utils::lightRegistryTree().openKey(kRoot, "top", false))) {
    for (const qm_utils::RegistryValue& value : copy.values) {
      const std::string_view data(reinterpret_cast<const char*>(value.data.data()), value.data.size());
      if (!qm_utils::hasTextForm(value.sName, value.uType, data)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  clear();
  JLightRegistryKey().create(kRoot, "top");
  read(std::string(reinterpret_cast<const char*>(pData), uSize), kTop);
  const std::string sText = write();
  if (comesBack()) {
    clear();
    require(read(sText, nullptr));
    require(write() == sText);
  }
  return 0;
}
