#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/registry/jregistry.h"

class JFlag;

/// A key of the registry in process memory. The tree is one for the process, begins empty, and lives as long
/// as the process; its root stands for "HKEY_LOCAL_MACHINE".
///
/// Paths are split at backslashes; empty parts are skipped, so a path without names is the key itself. Names
/// are compared byte by byte.
///
/// A key object holds its node in use: a node that is deleted meanwhile goes on being readable through it,
/// and its values can be overwritten, but nothing new can be made in it.
///
/// Any thread may use any key object: each operation holds the one mutex of the tree from begin to end. Under
/// it only flags that wait for a change are set.
class JLightRegistryKey : public qm_utils::IRegistryReadAccess, public qm_utils::IRegistryWriteAccess {
 public:
  /// No key is open; until one is, every operation but `isNull` fails with "Invalid light key".
  JLightRegistryKey() noexcept;
  ~JLightRegistryKey() override;

  /// A copy is a further user of the same node.
  JLightRegistryKey(const JLightRegistryKey& other);
  JLightRegistryKey& operator=(const JLightRegistryKey& other);

  /// Opens a key by its path from a root or from another key, and leaves the key that was open before. With
  /// `bTolerant` a key that doesn't exist gives false; else it is a failure. Either way the object then keeps
  /// the key that it had. Only "HKEY_LOCAL_MACHINE" has a tree; any other root is a failure.
  bool open(qm_utils::RegistryRoot root, const std::string& sPath, bool bTolerant = false);
  bool open(const JLightRegistryKey& parent, const std::string& sPath, bool bTolerant = false);

  /// As `open`, and makes the keys of the path that don't exist. Returns whether the last one is new.
  bool create(qm_utils::RegistryRoot root, const std::string& sPath);
  bool create(const JLightRegistryKey& parent, const std::string& sPath);

  /// Leaves the key. No key is open then.
  void close();

  /// Sets a flag at the next change of the key: a value that is set or deleted, a sub-key that is made or
  /// deleted, the end of the key itself; with `bSubTree` also any of that further down. Once: whoever wants
  /// the change after that asks again, before looking at the key.
  void notifyChange(std::shared_ptr<JFlag> pFlag, bool bSubTree);

  bool isNull() const override;

  /// Whether the key that is open was deleted, with no word on whether there is a new one of its path.
  bool isDeleted() const;

  void getSubKeys(std::vector<std::string>& names) const override;
  void getSubKeys(std::unique_ptr<qm_utils::RegistryKeyRecord[]>& pRecords,
                  std::size_t& uCount) const override;
  bool openSubKey(const std::string& sName, std::unique_ptr<qm_utils::IRegistryReadAccess>& pKey,
                  bool bTolerant) const override;
  void getValues(std::vector<qm_utils::RegistryValue>& values) const override;
  void getValues(std::unique_ptr<qm_utils::RegistryValueRecord[]>& pRecords,
                 std::size_t& uCount) const override;
  bool queryValue(const std::string& sName, std::uint32_t& uType, void* pData, std::size_t& uSize,
                  bool bTolerant) const override;

  bool getDword(const std::string& sName, std::uint32_t& uValue) const override;
  std::uint32_t getDword(const std::string& sName) const override;
  bool getQword(const std::string& sName, std::uint64_t& uValue) const override;
  std::uint64_t getQword(const std::string& sName) const override;
  bool getBool(const std::string& sName, bool& bValue) const override;
  bool getBool(const std::string& sName) const override;
  bool getString(const std::string& sName, std::string& sValue) const override;
  std::string getString(const std::string& sName) const override;
  void getString(const std::string& sName, char* szBuffer, std::size_t uSize) const override;
  bool getBinary(const std::string& sName, std::vector<std::uint8_t>& block) const override;
  std::vector<std::uint8_t> getBinary(const std::string& sName) const override;
  std::size_t getBinary(const std::string& sName, void* pBuffer, std::size_t uSize) const override;

  /// As `flush(false, nullptr)`.
  void flush() override;

  /// Brings the tree's branch "SOFTWARE" and its file together; "software.reg" in the system directory when
  /// the path is null. The first call reads the file in place of what the branch holds, each later one writes
  /// the branch into the file; with `bReload` the file is read again. A failure is thrown: of the reading, it
  /// leaves what was read so far (nothing is changed when the file can't be opened) and the next call reads
  /// again; of the writing, it leaves the old file whole.
  static void flush(bool bReload, const char* szPath);

  /// An absent value is a failure, and with `bTolerant` gives false.
  void deleteValue(const std::string& sName) override;
  bool deleteValue(const std::string& sName, bool bTolerant);

  /// A sub-key that doesn't exist is a failure, and with `bTolerant` gives false. The key itself (a path
  /// without names) can't be deleted through its own object.
  void deleteKey(const std::string& sName) override;
  bool deleteKey(const std::string& sName, bool bTolerant);

  void setValue(const std::string& sName, std::uint32_t uType, const void* pData, std::size_t uSize) override;
  void setDword(const std::string& sName, std::uint32_t uValue) override;
  void setQword(const std::string& sName, std::uint64_t uValue) override;
  void setString(const std::string& sName, const std::string& sText) override;
  void setBinary(const std::string& sName, const void* pData, std::size_t uSize) override;

 private:
  struct Node;
  struct Value;
  using NodePtr = std::shared_ptr<Node>;

  // All of these run under the mutex of the tree.
  static const NodePtr& rootOf(qm_utils::RegistryRoot root);
  static NodePtr walk(NodePtr pNode, const std::string& sPath, bool bTolerant);
  static void removeTree(Node& top);
  static void removeLeaf(Node& node);
  static void tellChange(Node& node);
  const NodePtr& openNode() const;
  bool openFrom(const NodePtr& pFrom, const std::string& sPath, bool bTolerant);
  bool createFrom(const NodePtr& pFrom, const std::string& sPath);
  const Value* findValue(const std::string& sName, bool bTolerant) const;
  const Value* findTyped(const std::string& sName, std::uint32_t uType, bool bTolerant) const;
  void requireRoom(const std::string& sName, std::size_t uNeeded, std::size_t uAvailable) const;

  // These take the mutex.
  template <typename Take>
  bool readTyped(const std::string& sName, std::uint32_t uType, bool bTolerant, Take take) const;
  void store(const std::string& sName, Value value);

  NodePtr m_pNode;
};
