#include "coreapi/qmutils/registry/jlightreg.h"

#include <cstring>
#include <map>
#include <string_view>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/registry/registryfile.h"
#include "coreapi/qmutils/registry/registrypath.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jwaitable.h"

using qm_utils::nextName;
using qm_utils::RegistryKeyRecord;
using qm_utils::RegistryRoot;
using qm_utils::RegistryValue;
using qm_utils::RegistryValueRecord;

/// A value as the tree keeps it: a number as itself, all else as its bytes.
struct JLightRegistryKey::Value {
  std::uint32_t uType = qm_utils::kRegNone;
  std::uint64_t uNumber = 0;
  std::vector<std::uint8_t> bytes;

  std::size_t size() const noexcept {
    switch (uType) {
      case qm_utils::kRegDword:
        return sizeof(std::uint32_t);
      case qm_utils::kRegQword:
        return sizeof(std::uint64_t);
      default:
        return bytes.size();
    }
  }

  /// Writes the `size()` bytes of the raw form.
  void write(void* pData) const noexcept {
    if (uType == qm_utils::kRegDword) {
      qm_platform::writeLE32(pData, static_cast<std::uint32_t>(uNumber));
    } else if (uType == qm_utils::kRegQword) {
      qm_platform::writeLE64(pData, uNumber);
    } else if (!bytes.empty()) {
      std::memcpy(pData, bytes.data(), bytes.size());
    }
  }

  /// The text up to its first NUL, or all bytes when there is none.
  std::string_view text() const noexcept {
    const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return all.substr(0, all.find('\0'));
  }
};

/// A key. Its users are the map of its parent, while it isn't deleted, and the key objects that have it open.
/// Only a node without sub-keys is deleted and a deleted one gets no new ones, so freeing never runs down a
/// tree.
struct JLightRegistryKey::Node {
  Node(std::string sNodeName, Node* pParentNode) : sName(std::move(sNodeName)), pParent(pParentNode) {}

  const std::string sName;
  Node* pParent;  ///< null for the root and for a deleted node
  std::map<std::string, NodePtr, std::less<>> subKeys;
  std::map<std::string, Value> values;
  bool bDeleted = false;

  /// A flag to be set at the next change, of this key or with `bSubTree` of any below it.
  struct Watch {
    std::shared_ptr<JFlag> pFlag;
    bool bSubTree;
  };
  std::vector<Watch> watches;

  /// Sets and forgets the flags, or those alone that look below as well.
  void tell(bool bAll) {
    std::erase_if(watches, [bAll](const Watch& watch) {
      const bool bTold = bAll || watch.bSubTree;
      if (bTold) {
        watch.pFlag->set();
      }
      return bTold;
    });
  }
};

namespace {

/// Guards all nodes. Neither it nor the tree is ever destroyed: threads may log, and so read their
/// configuration, until the process is gone.
JMutex& treeMutex() {
  static JMutex& mutex = *new JMutex;
  return mutex;
}

/// Cuts a name to what a record takes.
void copyName(char (&szName)[qm_utils::kRegistryRecordName], std::string_view name) noexcept {
  qm_err::copyText(szName, sizeof szName, name);
}

}  // namespace

JLightRegistryKey::JLightRegistryKey() noexcept = default;
JLightRegistryKey::~JLightRegistryKey() {
  close();
}

JLightRegistryKey::JLightRegistryKey(const JLightRegistryKey& other)
    : IRegistryReadAccess(other), IRegistryWriteAccess(other) {
  const JAutoLock lock(treeMutex());
  m_pNode = other.m_pNode;
}

JLightRegistryKey& JLightRegistryKey::operator=(const JLightRegistryKey& other) {
  const JAutoLock lock(treeMutex());
  m_pNode = other.m_pNode;
  return *this;
}

const JLightRegistryKey::NodePtr& JLightRegistryKey::rootOf(RegistryRoot root) {
  if (root != RegistryRoot::kLocalMachine) {
    QM_THROW(JTextError, "Light key only support HKEY_LOCAL_MACHINE");
  }
  static const NodePtr& pRoot = *new NodePtr(
      std::make_shared<Node>(std::string(registryRootName(RegistryRoot::kLocalMachine)), nullptr));
  return pRoot;
}

const JLightRegistryKey::NodePtr& JLightRegistryKey::openNode() const {
  if (!m_pNode) {
    QM_THROW(JTextError, "Invalid light key");
  }
  return m_pNode;
}

/// The node at the end of a path; null when it doesn't exist and that is tolerated.
JLightRegistryKey::NodePtr JLightRegistryKey::walk(NodePtr pNode, const std::string& sPath, bool bTolerant) {
  std::string_view path = sPath;
  std::string_view name;
  while (nextName(path, name)) {
    const auto found = pNode->subKeys.find(name);
    if (found == pNode->subKeys.end()) {
      if (bTolerant) {
        return nullptr;
      }
      QM_THROW(JTextError, "Light subkey '%s' of '%s' not found", std::string(name).c_str(),
               pNode->sName.c_str());
    }
    pNode = found->second;
  }
  return pNode;
}

bool JLightRegistryKey::openFrom(const NodePtr& pFrom, const std::string& sPath, bool bTolerant) {
  NodePtr pNode = walk(pFrom, sPath, bTolerant);
  if (!pNode) {
    return false;
  }
  m_pNode = std::move(pNode);
  return true;
}

bool JLightRegistryKey::open(RegistryRoot root, const std::string& sPath, bool bTolerant) {
  const JAutoLock lock(treeMutex());
  return openFrom(rootOf(root), sPath, bTolerant);
}

bool JLightRegistryKey::open(const JLightRegistryKey& parent, const std::string& sPath, bool bTolerant) {
  const JAutoLock lock(treeMutex());
  return openFrom(parent.openNode(), sPath, bTolerant);
}

/// Tells those who wait for a change of a key, and those above who look below as well.
void JLightRegistryKey::tellChange(Node& node) {
  node.tell(true);
  for (Node* pNode = node.pParent; pNode != nullptr; pNode = pNode->pParent) {
    pNode->tell(false);
  }
}

bool JLightRegistryKey::createFrom(const NodePtr& pFrom, const std::string& sPath) {
  NodePtr pNode = pFrom;
  bool bNew = false;
  Node* pChanged = nullptr;  // nobody can wait below the first key that is new
  std::string_view path = sPath;
  std::string_view name;
  while (nextName(path, name)) {
    const auto found = pNode->subKeys.find(name);
    bNew = found == pNode->subKeys.end();
    if (!bNew) {
      pNode = found->second;
      continue;
    }
    std::string sName(name);
    if (pNode->bDeleted) {
      QM_THROW(JTextError, "Cannot create subkey '%s' of deleted key '%s'", sName.c_str(),
               pNode->sName.c_str());
    }
    auto pNew = std::make_shared<Node>(sName, pNode.get());
    pNode->subKeys.emplace(std::move(sName), pNew);
    pChanged = pChanged != nullptr ? pChanged : pNode.get();
    pNode = std::move(pNew);
  }
  if (pChanged != nullptr) {
    tellChange(*pChanged);
  }
  m_pNode = std::move(pNode);
  return bNew;
}

bool JLightRegistryKey::create(RegistryRoot root, const std::string& sPath) {
  const JAutoLock lock(treeMutex());
  return createFrom(rootOf(root), sPath);
}

bool JLightRegistryKey::create(const JLightRegistryKey& parent, const std::string& sPath) {
  const JAutoLock lock(treeMutex());
  return createFrom(parent.openNode(), sPath);
}

void JLightRegistryKey::close() {
  const JAutoLock lock(treeMutex());
  m_pNode.reset();
}

void JLightRegistryKey::notifyChange(std::shared_ptr<JFlag> pFlag, bool bSubTree) {
  const JAutoLock lock(treeMutex());
  Node& node = *openNode();
  if (!pFlag) {
    QM_THROW(JNullPointerError, "pFlag");
  }
  // Whoever asks again without a change meanwhile, as after a time-out, still waits once.
  for (Node::Watch& watch : node.watches) {
    if (watch.pFlag == pFlag) {
      watch.bSubTree = watch.bSubTree || bSubTree;
      return;
    }
  }
  node.watches.push_back({std::move(pFlag), bSubTree});
}

bool JLightRegistryKey::isNull() const {
  const JAutoLock lock(treeMutex());
  return !m_pNode;
}

bool JLightRegistryKey::isDeleted() const {
  const JAutoLock lock(treeMutex());
  return openNode()->bDeleted;
}

void JLightRegistryKey::getSubKeys(std::vector<std::string>& names) const {
  const JAutoLock lock(treeMutex());
  const Node& node = *openNode();
  names.clear();
  names.reserve(node.subKeys.size());
  for (const auto& [sName, pSubKey] : node.subKeys) {
    names.push_back(sName);
  }
}

void JLightRegistryKey::getSubKeys(std::unique_ptr<RegistryKeyRecord[]>& pRecords,
                                   std::size_t& uCount) const {
  const JAutoLock lock(treeMutex());
  const Node& node = *openNode();
  pRecords = std::make_unique<RegistryKeyRecord[]>(node.subKeys.size());
  uCount = 0;
  for (const auto& [sName, pSubKey] : node.subKeys) {
    copyName(pRecords[uCount++].szName, sName);
  }
}

bool JLightRegistryKey::openSubKey(const std::string& sName,
                                   std::unique_ptr<qm_utils::IRegistryReadAccess>& pKey,
                                   bool bTolerant) const {
  auto pSubKey = std::make_unique<JLightRegistryKey>();
  if (!pSubKey->open(*this, sName, bTolerant)) {
    return false;
  }
  pKey = std::move(pSubKey);
  return true;
}

void JLightRegistryKey::getValues(std::vector<RegistryValue>& values) const {
  const JAutoLock lock(treeMutex());
  const Node& node = *openNode();
  values.clear();
  values.reserve(node.values.size());
  for (const auto& [sName, value] : node.values) {
    RegistryValue& record =
        values.emplace_back(RegistryValue{sName, value.uType, std::vector<std::uint8_t>(value.size())});
    value.write(record.data.data());
  }
}

void JLightRegistryKey::getValues(std::unique_ptr<RegistryValueRecord[]>& pRecords,
                                  std::size_t& uCount) const {
  const JAutoLock lock(treeMutex());
  const Node& node = *openNode();
  pRecords = std::make_unique<RegistryValueRecord[]>(node.values.size());
  uCount = 0;
  for (const auto& [sName, value] : node.values) {
    RegistryValueRecord& record = pRecords[uCount++];
    copyName(record.szName, sName);
    record.uType = value.uType;
    record.uSize = value.size();
    if (record.uSize != 0) {
      record.pData = std::make_unique<std::uint8_t[]>(record.uSize);
      value.write(record.pData.get());
    }
  }
}

/// A value, or null when it is absent and that is tolerated.
const JLightRegistryKey::Value* JLightRegistryKey::findValue(const std::string& sName, bool bTolerant) const {
  const Node& node = *openNode();
  const auto found = node.values.find(sName);
  if (found != node.values.end()) {
    return &found->second;
  }
  if (!bTolerant) {
    QM_THROW(JTextError, "Light value '%s' of key '%s' not found", sName.c_str(), node.sName.c_str());
  }
  return nullptr;
}

const JLightRegistryKey::Value* JLightRegistryKey::findTyped(const std::string& sName, std::uint32_t uType,
                                                             bool bTolerant) const {
  const Value* pValue = findValue(sName, bTolerant);
  if (pValue != nullptr && pValue->uType != uType) {
    QM_THROW(JTextError, "Type mismatch for light value '%s' of key '%s' : expected %s, really is %s",
             sName.c_str(), m_pNode->sName.c_str(), qm_utils::registryTypeName(uType).data(),
             qm_utils::registryTypeName(pValue->uType).data());
  }
  return pValue;
}

/// Fails when a value doesn't fit its buffer.
void JLightRegistryKey::requireRoom(const std::string& sName, std::size_t uNeeded,
                                    std::size_t uAvailable) const {
  if (uNeeded > uAvailable) {
    QM_THROW(JTextError,
             "Light value '%s' of key '%s' too big for output buffer : values size %d, available %d",
             sName.c_str(), m_pNode->sName.c_str(), static_cast<int>(uNeeded), static_cast<int>(uAvailable));
  }
}

bool JLightRegistryKey::queryValue(const std::string& sName, std::uint32_t& uType, void* pData,
                                   std::size_t& uSize, bool bTolerant) const {
  const JAutoLock lock(treeMutex());
  const Value* pValue = findValue(sName, bTolerant);
  if (pValue == nullptr) {
    return false;
  }
  const std::size_t uAvailable = std::exchange(uSize, pValue->size());
  if (pData != nullptr) {
    requireRoom(sName, uSize, uAvailable);
    pValue->write(pData);
  }
  uType = pValue->uType;
  return true;
}

/// Hands a value of a type to `take`; false when it is absent and that is tolerated.
template <typename Take>
bool JLightRegistryKey::readTyped(const std::string& sName, std::uint32_t uType, bool bTolerant,
                                  Take take) const {
  const JAutoLock lock(treeMutex());
  const Value* pValue = findTyped(sName, uType, bTolerant);
  if (pValue == nullptr) {
    return false;
  }
  take(*pValue);
  return true;
}

bool JLightRegistryKey::getDword(const std::string& sName, std::uint32_t& uValue) const {
  return readTyped(sName, qm_utils::kRegDword, true,
                   [&](const Value& value) { uValue = static_cast<std::uint32_t>(value.uNumber); });
}

std::uint32_t JLightRegistryKey::getDword(const std::string& sName) const {
  std::uint32_t uValue = 0;
  readTyped(sName, qm_utils::kRegDword, false,
            [&](const Value& value) { uValue = static_cast<std::uint32_t>(value.uNumber); });
  return uValue;
}

bool JLightRegistryKey::getQword(const std::string& sName, std::uint64_t& uValue) const {
  return readTyped(sName, qm_utils::kRegQword, true, [&](const Value& value) { uValue = value.uNumber; });
}

std::uint64_t JLightRegistryKey::getQword(const std::string& sName) const {
  std::uint64_t uValue = 0;
  readTyped(sName, qm_utils::kRegQword, false, [&](const Value& value) { uValue = value.uNumber; });
  return uValue;
}

bool JLightRegistryKey::getBool(const std::string& sName, bool& bValue) const {
  std::uint32_t uValue = 0;
  if (!getDword(sName, uValue)) {
    return false;
  }
  bValue = uValue != 0;
  return true;
}

bool JLightRegistryKey::getBool(const std::string& sName) const {
  return getDword(sName) != 0;
}

bool JLightRegistryKey::getString(const std::string& sName, std::string& sValue) const {
  return readTyped(sName, qm_utils::kRegSz, true, [&](const Value& value) { sValue = value.text(); });
}

std::string JLightRegistryKey::getString(const std::string& sName) const {
  std::string sValue;
  readTyped(sName, qm_utils::kRegSz, false, [&](const Value& value) { sValue = value.text(); });
  return sValue;
}

void JLightRegistryKey::getString(const std::string& sName, char* szBuffer, std::size_t uSize) const {
  readTyped(sName, qm_utils::kRegSz, false, [&](const Value& value) {
    const std::string_view text = value.text();
    requireRoom(sName, text.size() + 1, uSize);
    qm_err::copyText(szBuffer, uSize, text);
  });
}

bool JLightRegistryKey::getBinary(const std::string& sName, std::vector<std::uint8_t>& block) const {
  return readTyped(sName, qm_utils::kRegBinary, true, [&](const Value& value) { block = value.bytes; });
}

std::vector<std::uint8_t> JLightRegistryKey::getBinary(const std::string& sName) const {
  std::vector<std::uint8_t> block;
  readTyped(sName, qm_utils::kRegBinary, false, [&](const Value& value) { block = value.bytes; });
  return block;
}

std::size_t JLightRegistryKey::getBinary(const std::string& sName, void* pBuffer, std::size_t uSize) const {
  std::size_t uValueSize = 0;
  readTyped(sName, qm_utils::kRegBinary, false, [&](const Value& value) {
    uValueSize = value.size();
    requireRoom(sName, uValueSize, uSize);
    value.write(pBuffer);
  });
  return uValueSize;
}

void JLightRegistryKey::flush() {
  {
    const JAutoLock lock(treeMutex());
    openNode();
  }
  flush(false, nullptr);
}

void JLightRegistryKey::flush(bool bReload, const char* szPath) {
  qm_utils::RegistryFile::get().flush(bReload, szPath);
}

void JLightRegistryKey::deleteValue(const std::string& sName) {
  deleteValue(sName, false);
}

bool JLightRegistryKey::deleteValue(const std::string& sName, bool bTolerant) {
  const JAutoLock lock(treeMutex());
  if (findValue(sName, bTolerant) == nullptr) {
    return false;
  }
  m_pNode->values.erase(sName);
  tellChange(*m_pNode);
  return true;
}

/// Takes a node out of the tree. It is freed at once, or when the last key object leaves it.
void JLightRegistryKey::removeLeaf(Node& node) {
  if (!node.subKeys.empty()) {
    QM_THROW(JTextError, "Cannot delete key '%s' which has subkeys", node.sName.c_str());
  }
  node.bDeleted = true;
  node.tell(true);
  Node& parent = *std::exchange(node.pParent, nullptr);
  parent.subKeys.erase(parent.subKeys.find(node.sName));
}

/// Removes a node with everything under it, the lowest first. Goes up by the parents, not by calls: the depth
/// of a tree is up to who made it.
void JLightRegistryKey::removeTree(Node& top) {
  Node* const pAbove = top.pParent;
  Node* pNode = &top;
  while (pNode != pAbove) {
    if (!pNode->subKeys.empty()) {
      pNode = pNode->subKeys.begin()->second.get();
      continue;
    }
    Node* const pParent = pNode->pParent;
    removeLeaf(*pNode);
    pNode = pParent;
  }
  tellChange(*pAbove);
}

void JLightRegistryKey::deleteKey(const std::string& sName) {
  deleteKey(sName, false);
}

bool JLightRegistryKey::deleteKey(const std::string& sName, bool bTolerant) {
  const JAutoLock lock(treeMutex());
  const NodePtr pNode = walk(openNode(), sName, bTolerant);
  if (pNode == m_pNode) {
    QM_THROW(JTextError, "Light subkey '%s' of '%s' not found", sName.c_str(), pNode->sName.c_str());
  }
  if (!pNode) {
    return false;
  }
  removeTree(*pNode);
  return true;
}

void JLightRegistryKey::store(const std::string& sName, Value value) {
  const JAutoLock lock(treeMutex());
  Node& node = *openNode();
  const auto found = node.values.find(sName);
  if (found != node.values.end()) {
    found->second = std::move(value);
    tellChange(node);
    return;
  }
  if (node.bDeleted) {
    QM_THROW(JTextError, "Cannot create new value '%s' for deleted key '%s'", sName.c_str(),
             node.sName.c_str());
  }
  node.values.emplace(sName, std::move(value));
  tellChange(node);
}

void JLightRegistryKey::setValue(const std::string& sName, std::uint32_t uType, const void* pData,
                                 std::size_t uSize) {
  Value value;
  value.uType = uType;
  const bool bNumber = uType == qm_utils::kRegDword || uType == qm_utils::kRegQword;
  if (bNumber && uSize != value.size()) {
    QM_THROW(JTextError, "A %s takes %d bytes, not %d : light value '%s'",
             qm_utils::registryTypeName(uType).data(), static_cast<int>(value.size()),
             static_cast<int>(uSize), sName.c_str());
  }
  if (pData == nullptr && uSize != 0) {
    QM_THROW(JNullPointerError, "pData");
  }
  if (bNumber) {
    value.uNumber =
        uType == qm_utils::kRegDword ? qm_platform::readLE32(pData) : qm_platform::readLE64(pData);
  } else if (uSize != 0) {
    const auto* pBytes = static_cast<const std::uint8_t*>(pData);
    value.bytes.assign(pBytes, pBytes + uSize);
  }
  store(sName, std::move(value));
}

void JLightRegistryKey::setDword(const std::string& sName, std::uint32_t uValue) {
  store(sName, {qm_utils::kRegDword, uValue, {}});
}

void JLightRegistryKey::setQword(const std::string& sName, std::uint64_t uValue) {
  store(sName, {qm_utils::kRegQword, uValue, {}});
}

void JLightRegistryKey::setString(const std::string& sName, const std::string& sText) {
  setValue(sName, qm_utils::kRegSz, sText.c_str(), sText.size() + 1);
}

void JLightRegistryKey::setBinary(const std::string& sName, const void* pData, std::size_t uSize) {
  setValue(sName, qm_utils::kRegBinary, pData, uSize);
}
