#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Configuration lives in a tree of keys and typed values. Code holds a key through the two interfaces of
/// this file and doesn't know where the tree is. Names and texts are UTF-8; a path is names joined by
/// backslashes.
namespace qm_utils {

/// Types of values. Never renumber: stored trees hold these numbers (they are those of the Win32 registry).
enum RegistryType : std::uint32_t {
  kRegNone = 0,
  kRegSz = 1,
  kRegExpandSz = 2,
  kRegBinary = 3,
  kRegDword = 4,
  kRegMultiSz = 7,
  kRegQword = 11,
};

/// The name of a type as messages use it, "UNKNOWN" for a number that is none.
std::string_view registryTypeName(std::uint32_t uType) noexcept;

/// The roots of all paths. Never renumber: they are the handles of the Win32 registry.
enum class RegistryRoot : std::uint32_t {
  kClassesRoot = 0x80000000,
  kCurrentUser = 0x80000001,
  kLocalMachine = 0x80000002,
  kUsers = 0x80000003,
  kCurrentConfig = 0x80000005,
};

/// The name of a root as messages and paths use it, "UNKNOWN HKEY" for any other number.
std::string_view registryRootName(RegistryRoot root) noexcept;

/// Access masks of keys.
constexpr std::uint32_t kRegistryRead = 0x20019;
constexpr std::uint32_t kRegistryAllAccess = 0xF003F;

/// A value with its data. Numbers stand as 4 or 8 little-endian bytes, texts with their final NUL.
struct RegistryValue {
  std::string sName;
  std::uint32_t uType = kRegNone;
  std::vector<std::uint8_t> data;
};

/// Size of the name in the records below, its NUL included; a longer name is cut.
constexpr std::size_t kRegistryRecordName = 256;

/// A sub-key in the array form of `getSubKeys`.
struct RegistryKeyRecord {
  char szName[kRegistryRecordName];
};

/// A value in the array form of `getValues`. The record owns its data.
struct RegistryValueRecord {
  char szName[kRegistryRecordName];
  std::uint32_t uType;
  std::unique_ptr<std::uint8_t[]> pData;  ///< null when there are no bytes
  std::size_t uSize;                      ///< bytes
};

/// Reading of a key. Every operation but `isNull` throws while no key is open. A value of another type than
/// the one asked for is a failure in every typed getter. Failures are `JTextError` or `JSysError`; unless
/// told otherwise, the out arguments then are as they were.
class IRegistryReadAccess {
 public:
  virtual ~IRegistryReadAccess() = default;

  /// True while no key is open.
  virtual bool isNull() const = 0;

  /// The names of the sub-keys, in byte order. Replaces what the list held.
  virtual void getSubKeys(std::vector<std::string>& names) const = 0;
  virtual void getSubKeys(std::unique_ptr<RegistryKeyRecord[]>& pRecords, std::size_t& uCount) const = 0;

  /// Opens a sub-key, which may be several levels down, for reading. With `bTolerant` a key that doesn't
  /// exist gives false and leaves `pKey` alone; else it is a failure.
  virtual bool openSubKey(const std::string& sName, std::unique_ptr<IRegistryReadAccess>& pKey,
                          bool bTolerant) const = 0;

  /// All values, in byte order of their names. Replaces what the list held.
  virtual void getValues(std::vector<RegistryValue>& values) const = 0;
  virtual void getValues(std::unique_ptr<RegistryValueRecord[]>& pRecords, std::size_t& uCount) const = 0;

  /// Reads a value of any type in its raw form. `uSize` is the size of the buffer in bytes on the way in and
  /// the size of the value on the way out, when the buffer is too small (a failure) as well. A null `pData`
  /// asks for type and size alone. With `bTolerant` an absent value gives false; else it is a failure.
  virtual bool queryValue(const std::string& sName, std::uint32_t& uType, void* pData, std::size_t& uSize,
                          bool bTolerant) const = 0;

  /// The typed getters. The form with an out value gives false when the value is absent, and leaves the out
  /// value alone; the form that returns the value fails then.
  virtual bool getDword(const std::string& sName, std::uint32_t& uValue) const = 0;
  virtual std::uint32_t getDword(const std::string& sName) const = 0;
  virtual bool getQword(const std::string& sName, std::uint64_t& uValue) const = 0;
  virtual std::uint64_t getQword(const std::string& sName) const = 0;

  /// A DWORD read as a truth: true when it isn't 0.
  virtual bool getBool(const std::string& sName, bool& bValue) const = 0;
  virtual bool getBool(const std::string& sName) const = 0;

  /// A text, up to its first NUL.
  virtual bool getString(const std::string& sName, std::string& sValue) const = 0;
  virtual std::string getString(const std::string& sName) const = 0;

  /// A text with its NUL in the caller's buffer of `uSize` bytes; a buffer too small for it is a failure.
  virtual void getString(const std::string& sName, char* szBuffer, std::size_t uSize) const = 0;

  virtual bool getBinary(const std::string& sName, std::vector<std::uint8_t>& block) const = 0;
  virtual std::vector<std::uint8_t> getBinary(const std::string& sName) const = 0;

  /// Bytes in the caller's buffer of `uSize` bytes; a buffer too small for them is a failure. Returns the
  /// value's size.
  virtual std::size_t getBinary(const std::string& sName, void* pBuffer, std::size_t uSize) const = 0;
};

/// Changing of a key. Every operation but `isNull` throws while no key is open. Setting a value replaces any
/// old value of that name, whatever its type.
class IRegistryWriteAccess {
 public:
  virtual ~IRegistryWriteAccess() = default;

  /// True while no key is open.
  virtual bool isNull() const = 0;

  /// Writes pending changes to where the tree is kept.
  virtual void flush() = 0;

  virtual void deleteValue(const std::string& sName) = 0;

  /// Deletes a sub-key with everything under it.
  virtual void deleteKey(const std::string& sName) = 0;

  /// Sets a value in its raw form: `uSize` bytes, exactly 4 for a DWORD and 8 for a QWORD, little-endian; a
  /// text with its final NUL.
  virtual void setValue(const std::string& sName, std::uint32_t uType, const void* pData,
                        std::size_t uSize) = 0;
  virtual void setDword(const std::string& sName, std::uint32_t uValue) = 0;
  virtual void setQword(const std::string& sName, std::uint64_t uValue) = 0;
  virtual void setString(const std::string& sName, const std::string& sText) = 0;
  virtual void setBinary(const std::string& sName, const void* pData, std::size_t uSize) = 0;
};

}  // namespace qm_utils
