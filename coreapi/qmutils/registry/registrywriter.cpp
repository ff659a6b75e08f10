#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrypath.h"
#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_utils {

namespace {

/// Bytes of text that are gathered before they are written.
constexpr std::size_t kPiece = 64 * 1024;

std::string_view textOf(const std::vector<std::uint8_t>& data) noexcept {
  const std::string_view all(reinterpret_cast<const char*>(data.data()), data.size());
  return all.substr(0, all.find('\0'));
}

/// Makes the text of keys and writes it in pieces.
class TextWriter {
 public:
  explicit TextWriter(JOSocket& socket) : m_socket(socket) {}

  void add(std::string_view text) {
    m_sText += text;
    if (m_sText.size() >= kPiece) {
      flush();
    }
  }

  /// Writes a key's own part: its path and its values.
  void addKey(const std::string& sPath, const IRegistryReadAccess& key);

  void flush();

 private:
  void addValue(const RegistryValue& value);
  void addQuoted(std::string_view text) { m_sText.append(1, '"').append(text).append(1, '"'); }
  void addHex(std::uint32_t uNumber, int iDigits);
  void addBytes(const std::vector<std::uint8_t>& data);
  void addList(const std::vector<std::uint8_t>& data);

  JOSocket& m_socket;
  std::string m_sText;
};

void TextWriter::addKey(const std::string& sPath, const IRegistryReadAccess& key) {
  std::vector<RegistryValue> values;
  key.getValues(values);
  add("[" + sPath + "]\n");
  for (const RegistryValue& value : values) {
    addValue(value);
  }
  add("\n");
}

void TextWriter::addValue(const RegistryValue& value) {
  addQuoted(value.sName);
  m_sText += '=';
  switch (value.uType) {
    case kRegSz:
    case kRegExpandSz:
      addQuoted(textOf(value.data));
      break;
    case kRegBinary:
      m_sText += "hex:";
      addBytes(value.data);
      break;
    case kRegDword:
      m_sText += "dword:";
      addHex(qm_platform::readLE32(value.data.data()), 8);
      break;
    case kRegMultiSz:
      addList(value.data);
      break;
    default:
      QM_THROW(JTextError, "Unknown REG_TYPE.\n");
  }
  add("\n");
}

void TextWriter::addHex(std::uint32_t uNumber, int iDigits) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int iShift = 4 * (iDigits - 1); iShift >= 0; iShift -= 4) {
    m_sText += kDigits[uNumber >> iShift & 0xF];
  }
}

void TextWriter::addBytes(const std::vector<std::uint8_t>& data) {
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i != 0) {
      m_sText += ',';
    }
    addHex(data[i], 2);
  }
}

/// Each string of a list up to the empty one that ends it.
void TextWriter::addList(const std::vector<std::uint8_t>& data) {
  std::string_view rest(reinterpret_cast<const char*>(data.data()), data.size());
  for (bool bFirst = true; !rest.empty() && rest.front() != '\0'; bFirst = false) {
    const std::string_view text = rest.substr(0, rest.find('\0'));
    if (!bFirst) {
      m_sText += ',';
    }
    addQuoted(text);
    rest.remove_prefix(std::min(text.size() + 1, rest.size()));
  }
}

void TextWriter::flush() {
  std::string_view rest = m_sText;
  while (!rest.empty()) {
    const std::size_t uWritten = m_socket.write(rest.data(), rest.size());
    if (uWritten == 0) {
      QM_THROW(JTextError, "The channel takes no more of the registry's text");
    }
    rest.remove_prefix(uWritten);
  }
  m_sText.clear();
}

/// A key on the way from the one that is exported down to where the writer stands.
struct Level {
  std::unique_ptr<IRegistryReadAccess> pKey;
  std::string sPath;
  std::vector<std::string> names;  ///< of the sub-keys
  std::size_t uNext = 0;           ///< the first of them that isn't written
};

Level openLevel(std::unique_ptr<IRegistryReadAccess> pKey, std::string sPath) {
  Level level{std::move(pKey), std::move(sPath), {}, 0};
  level.pKey->getSubKeys(level.names);
  return level;
}

}  // namespace

void exportRegistry(const IRegistryTree& tree, JOSocket& socket, const std::string& sKeyPath) {
  RootedPath path;
  const std::size_t uStart = sKeyPath.find_first_not_of('\\');
  if (uStart == std::string::npos || !parseRootedPath(std::string_view(sKeyPath).substr(uStart), path)) {
    QM_THROW(JTextError, "unknown root key");
  }
  std::vector<Level> levels;
  levels.push_back(openLevel(tree.openKey(path.root, path.sPath, false), fullPath(path.root, path.sPath)));
  TextWriter writer(socket);
  writer.add("REGEDIT4\n\n");
  writer.addKey(levels.back().sPath, *levels.back().pKey);
  // By a list of levels, not by calls: the depth of a tree is up to who made it.
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.uNext == level.names.size()) {
      levels.pop_back();
      continue;
    }
    const std::string& sName = level.names[level.uNext++];
    std::unique_ptr<IRegistryReadAccess> pSubKey;
    if (level.pKey->openSubKey(sName, pSubKey, true)) {  // else it has been deleted in the meantime
      levels.push_back(openLevel(std::move(pSubKey), joinPath(level.sPath, sName)));
      writer.addKey(levels.back().sPath, *levels.back().pKey);
    }
  }
  writer.flush();
}

}  // namespace qm_utils
