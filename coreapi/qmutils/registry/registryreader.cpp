#include <charconv>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/jregistrytext.h"
#include "coreapi/qmutils/registry/registrypath.h"
#include "coreapi/qmutils/rpc/linebuffer.h"
#include "coreapi/qmutils/socket/jiosocket.h"

namespace qm_utils {

namespace {

constexpr std::string_view kHttpStatus = "HTTP/1.";
constexpr std::string_view kTextMark = "REGEDIT4";
constexpr std::string_view kDwordMark = "dword:";
constexpr std::string_view kHexMark = "hex:";
constexpr std::string_view kBlanks = " \t";

[[noreturn]] void fail(const char* szWhat, std::string_view where, const char* szEnd = "") {
  QM_THROW(JTextError, "%s %s%s", szWhat, std::string(where).c_str(), szEnd);
}

/// Takes a mark off the start of a text.
bool takeMark(std::string_view& text, std::string_view mark) noexcept {
  if (!text.starts_with(mark)) {
    return false;
  }
  text.remove_prefix(mark.size());
  return true;
}

void skipBlanks(std::string_view& text) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// Takes a hexadecimal number, which blanks and "0x" may precede, off the start of a text. False when there
/// is none, and for one beyond 32 bits.
bool takeHex(std::string_view& text, std::uint32_t& uNumber) noexcept {
  skipBlanks(text);
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
  }
  const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), uNumber, 16);
  if (error != std::errc()) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(pEnd - text.data()));
  return true;
}

/// Reads numbers that are separated by commas, each of one byte; no number at all is an empty list.
bool readBytes(std::string_view text, std::vector<std::uint8_t>& bytes) {
  if (text.empty()) {
    return true;
  }
  for (std::uint32_t uNumber = 0; takeHex(text, uNumber) && uNumber <= 0xFF;) {
    bytes.push_back(static_cast<std::uint8_t>(uNumber));
    skipBlanks(text);
    if (text.empty()) {
      return true;
    }
    if (!takeMark(text, ",")) {
      return false;
    }
  }
  return false;
}

/// Takes the lines of a text one by one and does in the tree what they say.
class TextReader {
 public:
  TextReader(const IRegistryTree& tree, const char* szPrefix) : m_tree(tree) {
    if (szPrefix != nullptr) {
      m_sPrefix = szPrefix;
    }
  }

  void take(std::string_view line) {
    const bool bFirst = !m_bBegun;
    m_bBegun = true;
    if (m_bInHttpHeader || (bFirst && line.starts_with(kHttpStatus))) {
      m_bInHttpHeader = !line.empty();
      return;
    }
    if (line.empty() || line.front() == ';' || line == kTextMark) {
      return;
    }
    if (line.front() == '[') {
      takeKey(line);
    } else if (m_bKeySeen) {
      takeValue(line);
    }
  }

 private:
  void takeKey(std::string_view line);
  std::string mapPath(std::string_view path);
  void takeValue(std::string_view line);
  static std::string takeName(std::string_view line, std::string_view& rest);

  const IRegistryTree& m_tree;
  std::optional<std::string> m_sPrefix;        ///< what the first key's path becomes
  std::optional<std::string> m_sSourcePrefix;  ///< the first key's path
  std::unique_ptr<IRegistryWriteAccess> m_pKey;
  bool m_bBegun = false;
  bool m_bInHttpHeader = false;
  bool m_bKeySeen = false;
};

void TextReader::takeKey(std::string_view line) {
  if (!line.ends_with(']')) {
    fail("missing ] at", line);
  }
  m_bKeySeen = true;
  m_pKey.reset();
  const std::string sPath = mapPath(line.substr(1, line.size() - 2));
  RootedPath path;
  if (!parseRootedPath(sPath, path)) {
    fail("unknown root key in", sPath);
  }
  if (countNames(path.sPath) > kRegistryDepthLimit) {
    fail("too many levels in", sPath);
  }
  m_pKey = m_tree.createKey(path.root, path.sPath);
}

/// The path with the given prefix in place of the first key's.
std::string TextReader::mapPath(std::string_view path) {
  if (!m_sPrefix) {
    return std::string(path);
  }
  if (!m_sSourcePrefix) {
    m_sSourcePrefix = path;
  }
  if (!path.starts_with(*m_sSourcePrefix)) {
    fail("bad prefix in", path);
  }
  return *m_sPrefix + std::string(path.substr(m_sSourcePrefix->size()));
}

/// The name of a value; `rest` is what stands behind its "=".
std::string TextReader::takeName(std::string_view line, std::string_view& rest) {
  rest = line;
  if (!takeMark(rest, "\"")) {
    const std::size_t uEnd = line.find('=');
    if (uEnd == std::string_view::npos) {
      fail("missing = for", line, "\n");
    }
    rest = line.substr(uEnd + 1);
    return std::string(line.substr(0, uEnd));
  }
  const std::size_t uEnd = rest.find('"');
  if (uEnd == std::string_view::npos) {
    fail("missing quote for", line, "\n");
  }
  std::string sName(rest.substr(0, uEnd));
  rest.remove_prefix(uEnd + 1);
  skipBlanks(rest);
  if (!takeMark(rest, "=")) {
    fail("missing = for", line, "\n");
  }
  return sName;
}

void TextReader::takeValue(std::string_view line) {
  if (!m_pKey) {
    fail("no current key for", line, "\n");
  }
  std::string_view text;
  const std::string sName = takeName(line, text);
  std::uint32_t uNumber = 0;
  std::vector<std::uint8_t> bytes;
  if (takeMark(text, "\"")) {
    m_pKey->setString(sName, std::string(text.substr(0, text.size() - (text.ends_with('"') ? 1 : 0))));
    return;
  }
  const bool bNumber = takeMark(text, kDwordMark);
  if (bNumber && takeHex(text, uNumber)) {
    m_pKey->setDword(sName, uNumber);
  } else if (!bNumber && takeMark(text, kHexMark) && readBytes(text, bytes)) {
    m_pKey->setBinary(sName, bytes.data(), bytes.size());
  } else {
    fail("unknown key format at", line, "\n");
  }
}

/// What has come behind the last line end.
std::string takeLastLine(LineBuffer& lines) {
  std::string sLine;
  char piece[4096];
  while (const std::size_t uCount = lines.takeBytes(piece, sizeof piece)) {
    sLine.append(piece, uCount);
  }
  return sLine;
}

}  // namespace

void importRegistry(const IRegistryTree& tree, JISocket& socket, const char* szPrefix) {
  TextReader reader(tree, szPrefix);
  LineBuffer lines(kRegistryLineLimit);
  for (;;) {
    const std::span<char> room = lines.makeRoom();
    const std::size_t uCount = socket.read(room.data(), room.size());
    if (uCount == 0) {
      break;
    }
    lines.addFilled(uCount);
    while (const std::optional<std::string_view> line = lines.takeLine()) {
      reader.take(*line);
    }
  }
  // A text that was written by hand may lack its last line end.
  reader.take(takeLastLine(lines));
}

}  // namespace qm_utils
