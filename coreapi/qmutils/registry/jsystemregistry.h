#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/registry/jlightreg.h"
#include "coreapi/qmutils/registry/jregistry.h"

/// A key of the machine's configuration; what all configuration is read through. It stands on the tree in
/// process memory, whose branch "SOFTWARE" is kept in the file "software.reg" of the system directory
/// (`qm_platform::systemDirectory`).
///
/// The file is read when the process first opens a key, and again by `reload`. Without a file there is an
/// empty tree. A file that can't be read as a whole is logged as an error, and what stands before its damage
/// is there to be read; nothing can be changed then. The first change makes the file.
///
/// A change is in the tree at once. It is in the file behind the next `flush`, or when the key is closed, by
/// its destructor at the latest; a failure is logged then, and tried again with the next key that is closed.
/// A process that writes doesn't see what others have written since it last read: the last one wins.
///
/// A value that the text of the file can't carry is refused on a key that is kept in the file, with the code
/// EINVAL: one of another type than REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD and REG_MULTI_SZ, a name
/// with a quote or a line break, a text with a line break, and what is longer than a line may be. So is the
/// name of a key with a line break.
///
/// What doesn't exist is a `JSysError` with the code ENOENT (2), use of an object that has no key open one
/// with EBADF, a change through a key that isn't open for it one with EACCES. Their function is
/// "Function=NAME, key=ROOT\KEY-OR-VALUE". All other failures are those of `JLightRegistryKey`.
///
/// One object is for one thread; distinct objects need no lock.
class JSystemRegistryKey : public qm_utils::IRegistryReadAccess, public qm_utils::IRegistryWriteAccess {
 public:
  /// No key is open.
  JSystemRegistryKey() = default;
  ~JSystemRegistryKey() override;
  JSystemRegistryKey(const JSystemRegistryKey&) = default;
  JSystemRegistryKey& operator=(const JSystemRegistryKey&) = default;

  /// Reads the file again, in place of the whole branch "SOFTWARE": key objects that are open in it go on
  /// reading what was there before, and change what is there now. Changes that weren't written are given up.
  /// Throws when the file can't be opened, and nothing has changed then, or can't be read as a whole.
  static void reload();

  /// Opens a key by its path from a root or from another key. With `bTolerant` a key that doesn't exist gives
  /// false; else it is a failure. Either way the object then keeps the key that it had.
  bool open(qm_utils::RegistryRoot root, const std::string& sPath,
            std::uint32_t uAccess = qm_utils::kRegistryRead, bool bTolerant = false);
  bool open(const JSystemRegistryKey& parent, const std::string& sPath,
            std::uint32_t uAccess = qm_utils::kRegistryRead, bool bTolerant = false);

  /// As `open`, and makes the keys of the path that don't exist. Returns whether the last one is new.
  bool create(qm_utils::RegistryRoot root, const std::string& sPath,
              std::uint32_t uAccess = qm_utils::kRegistryAllAccess);
  bool create(const JSystemRegistryKey& parent, const std::string& sPath,
              std::uint32_t uAccess = qm_utils::kRegistryAllAccess);

  /// Opens the root of another machine. No configuration is reached over a network here: this always fails,
  /// with the code EOPNOTSUPP.
  [[noreturn]] void connect(const std::string& sMachine, qm_utils::RegistryRoot root);

  /// Writes this key and everything under it into a file of its own, in the text form, which replaces any
  /// file of that name when it is complete. Throws.
  void save(const std::string& sFile) const;

  /// Puts what such a file holds in the place of this key's values and sub-keys. What was read before a
  /// failure stays.
  void restore(const std::string& sFile);

  /// Leaves the key. No key is open then.
  void close();

  /// As `JLightRegistryKey::notifyChange`.
  void notifyChange(std::shared_ptr<JFlag> pFlag, bool bSubTree);

  bool isNull() const override;

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

  void flush() override;
  void deleteValue(const std::string& sName) override;

  /// A sub-key that doesn't exist is no failure.
  void deleteKey(const std::string& sName) override;

  void setValue(const std::string& sName, std::uint32_t uType, const void* pData, std::size_t uSize) override;
  void setDword(const std::string& sName, std::uint32_t uValue) override;
  void setQword(const std::string& sName, std::uint64_t uValue) override;
  void setString(const std::string& sName, const std::string& sText) override;
  void setBinary(const std::string& sName, const void* pData, std::size_t uSize) override;

 private:
  const JLightRegistryKey& reading(const char* szFunction, const std::string& sWhat) const;
  void requireChangeable(const char* szFunction, const std::string& sWhat) const;
  void requireFound(bool bFound, const std::string& sName) const;
  void requireValue(const std::string& sName) const;
  void requireTextForm(const std::string& sName, std::uint32_t uType, const void* pData,
                       std::size_t uSize) const;
  template <typename Work>
  void change(const char* szFunction, const std::string& sWhat, const std::string& sSubPath, Work work);
  bool createAt(JLightRegistryKey parent, qm_utils::RegistryRoot root, const std::string& sParentPath,
                const std::string& sPath, std::uint32_t uAccess);
  void adopt(const JLightRegistryKey& key, qm_utils::RegistryRoot root, const std::string& sPath,
             std::uint32_t uAccess);
  bool openAt(bool bFound, const JLightRegistryKey& key, qm_utils::RegistryRoot root,
              const std::string& sParentPath, const std::string& sPath, std::uint32_t uAccess,
              bool bTolerant);

  JLightRegistryKey m_key;
  qm_utils::RegistryRoot m_root{};  ///< the root that the key's path began at; 0 while no key is open
  std::string m_sPath;              ///< from the root
  std::uint32_t m_uAccess = 0;
};
