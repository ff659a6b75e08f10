#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

namespace qm_utils {

/// What has a name of its own in the log and says itself which trace levels it wants there.
///
/// The levels from 13 up are chosen for each object by a mask word, bit N for level N. An object without a
/// mask logs at every level.
class ITraceableObject {
 public:
  virtual ~ITraceableObject() = default;

  /// The mask word, which may be null. It belongs to the object or to whoever gave it.
  virtual std::uint32_t* getTraceMask() const = 0;

  /// The name under which the object logs.
  virtual const std::string& getName() const = 0;

  /// True when a mask exists and has one of these bits.
  virtual bool isTraceEnabled(std::uint32_t uBits) const = 0;

  /// Logs at level TRACE under the object's name. Never throws.
  [[gnu::format(printf, 2, 3)]] virtual void trace(const char* szFormat, ...) const = 0;
};

}  // namespace qm_utils

/// Base of all that logs under a name of its own. Names of living objects are distinct: an object whose name
/// is taken gets its serial number behind it, "NAME[ID]".
///
/// Any thread may trace through an object; its name and the pointer to its mask change only while no other
/// thread uses it. The mask word itself may change at any time. Lock order: the registry of names is
/// innermost, nothing is called under its lock.
class JTraceableObject : public qm_utils::ITraceableObject {
 public:
  /// As a name: the object is called "[ADDRESS]".
  static const char* const kDefaultName;

  /// What happens to a mask word that is given at construction.
  enum class Mask {
    kShared,  ///< the object reads the caller's word, which outlives it
    kCopied,  ///< the object keeps a word of its own that starts with the caller's value
  };

  /// A null mask means that no level is kept back.
  explicit JTraceableObject(std::string sName = kDefaultName, std::uint32_t* pTraceMask = nullptr,
                            Mask mask = Mask::kShared);
  ~JTraceableObject() override;
  JTraceableObject(const JTraceableObject&) = delete;
  JTraceableObject& operator=(const JTraceableObject&) = delete;

  std::uint32_t* getTraceMask() const override;
  const std::string& getName() const override;
  bool isTraceEnabled(std::uint32_t uBits) const override;
  [[gnu::format(printf, 2, 3)]] void trace(const char* szFormat, ...) const override;

  /// `trace` for those who forward their own arguments.
  [[gnu::format(printf, 2, 0)]] void traceV(const char* szFormat, va_list arguments) const;

  /// Serial number of the object in this process, from 1.
  std::uint64_t getId() const noexcept { return m_uId; }

 protected:
  /// Gives up the old name and takes a new one, by the same rule as at construction.
  void setTraceName(std::string sName);

 private:
  void enterName(std::string sName);
  void leaveName() noexcept;

  std::string m_sName;
  std::uint32_t m_uOwnMask = 0;
  std::uint32_t* m_pTraceMask = nullptr;
  std::uint64_t m_uId = 0;
  bool m_bEntered = false;
};
