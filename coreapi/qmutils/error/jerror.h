#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "coreapi/qmutils/error/loghook.h"

/// Root of everything that is thrown. An error is created with `new` (by QM_THROW), thrown as a pointer, and
/// owned by whoever catches it: a handler takes it into a `qm_err::CaughtError`, which deletes it, or throws
/// the same pointer on.
///
/// An error belongs to one thread at a time; none of these classes has a lock.
class JError {
 public:
  virtual ~JError() = default;

  /// Writes the text of the error into `szBuf`, cut to `iBufLen` bytes and always ended by a NUL. A null
  /// buffer or a size of 0 writes nothing.
  virtual void getMessage(char* szBuf, std::size_t iBufLen) const = 0;

  /// The text of the error, at most 2047 bytes of it.
  std::string getMessage() const;

  /// Source file of the throw site, without directory; empty when none was given.
  const char* getFile() const noexcept { return m_szFile; }

  /// Source line of the throw site.
  int getLine() const noexcept { return m_iLine; }

  /// Logs the text at level EXCEPTION with the file and line of the throw site and the tag "Exception
  /// REPORT".
  void report() const;

  /// Says where the error was thrown; a name longer than 255 characters is cut.
  void setSite(const char* szFile, int iLine) noexcept;

 protected:
  JError() noexcept = default;
  JError(const JError&) = default;
  JError& operator=(const JError&) = default;

 private:
  char m_szFile[256] = {};
  int m_iLine = 0;
};

/// Writes the text of an error as `JError::getMessage` does; a null error leaves the buffer alone.
void getErrorMessage(const JError* pError, char* szBuf, std::size_t iBufLen);

namespace qm_err {

/// Copies `text`, cut to `size` bytes with its NUL, into `buffer`. A null buffer or a size of 0 writes
/// nothing.
void copyText(char* buffer, std::size_t size, std::string_view text) noexcept;

/// Gives a new error its throw site; used by QM_THROW.
template <class ErrorClass>
ErrorClass* located(ErrorClass* pError, const char* szFile, int iLine) noexcept {
  pError->setSite(szFile, iLine);
  return pError;
}

/// Owns an error that was caught, so that no handler deletes by hand:
///
///     catch (JError* pError) {
///       const qm_err::CaughtError error(pError);
///       JCATCH_LOG(error.get());
///     }
class CaughtError {
 public:
  explicit CaughtError(JError* pError) noexcept : m_pError(pError) {}
  ~CaughtError() { delete m_pError; }
  CaughtError(const CaughtError&) = delete;
  CaughtError& operator=(const CaughtError&) = delete;
  CaughtError(CaughtError&& other) noexcept : m_pError(std::exchange(other.m_pError, nullptr)) {}
  CaughtError& operator=(CaughtError&& other) noexcept {
    std::swap(m_pError, other.m_pError);
    return *this;
  }

  JError* get() const noexcept { return m_pError; }
  JError* operator->() const noexcept { return m_pError; }
  JError& operator*() const noexcept { return *m_pError; }

  /// Gives the error up to the caller, who owns it from now on.
  [[nodiscard]] JError* release() noexcept { return std::exchange(m_pError, nullptr); }

  /// Throws the error on, as the class that it is. Must be called in the handler that caught it.
  [[noreturn]] void rethrow() {
    m_pError = nullptr;
    throw;
  }

 private:
  JError* m_pError;
};

/// Logs an error's text at level EXCEPTION under a tag. At most 1023 bytes of the text. Never throws.
void logError(const JError& error, const char* szFile, int iLine, const char* szTag) noexcept;

}  // namespace qm_err

/// Throws a new error of a class, with the arguments of its constructor, from this file and line.
#define QM_THROW(ErrorClass, ...) \
  throw ::qm_err::located(new ErrorClass(__VA_ARGS__), __FILE_NAME__, __LINE__)

/// Logs a caught error at level EXCEPTION with this file and line. The error stays with its owner.
#define JCATCH_LOG(pError) ::qm_err::logError(*(pError), __FILE_NAME__, __LINE__, "Exception CATCH")

/// Logs at level ERROR that a condition doesn't hold, and goes on: code behind it must be safe by itself.
#define JASSERT(condition)      \
  (static_cast<bool>(condition) \
       ? static_cast<void>(0)   \
       : ::qm_err::logText(::qm_err::kLogError, "ASSERTION FAILED (" #condition ")"))

/// As JASSERT, at level CRITICAL. Goes on as well.
#define JFATAL_ASSERT(condition) \
  (static_cast<bool>(condition)  \
       ? static_cast<void>(0)    \
       : ::qm_err::logText(::qm_err::kLogCritical, "FATAL ASSERTION FAILED !! (" #condition ")"))

/// A call of the system failed. The code's top three bits say whose number it is: 0x40000000 a socket error
/// (Winsock numbers), 0x20000000 and 0xC0000000 an audio input or output device, all else an `errno` value.
class JSysError : public JError {
 public:
  static constexpr std::uint32_t kClassMask = 0xE0000000;
  static constexpr std::uint32_t kAudioInputClass = 0x20000000;
  static constexpr std::uint32_t kSocketClass = 0x40000000;
  static constexpr std::uint32_t kAudioOutputClass = 0xC0000000;

  JSysError(std::uint32_t uCode, const char* szFunction) noexcept;

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

  std::uint32_t getCode() const noexcept { return m_uCode; }
  const char* getFunction() const noexcept { return m_szFunction; }

 private:
  /// What stands in the place of the system's text; may hold line breaks.
  virtual std::string systemText() const;

  std::uint32_t m_uCode;
  char m_szFunction[256] = {};
};

/// The disk is full; thrown by the file layer.
class JNoSpaceLeftError : public JSysError {
 public:
  using JSysError::JSysError;
};

/// A failure told by an NT status.
class JNtDllError : public JSysError {
 public:
  using JSysError::JSysError;

 private:
  std::string systemText() const override;
};

/// A failure that is told by a text of at most 255 characters.
class JTextError : public JError {
 public:
  [[gnu::format(printf, 2, 3)]] explicit JTextError(const char* szFormat, ...);
  explicit JTextError(const std::string& sText) noexcept;

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  char m_szText[256] = {};
};

/// A wait or an operation took longer than its time-out.
class JTimeoutError : public JError {
 public:
  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;
};

/// A pointer that must be there is null.
class JNullPointerError : public JError {
 public:
  explicit JNullPointerError(std::string sName) : m_sName(std::move(sName)) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  std::string m_sName;
};

/// The operation exists by name only.
class JUnimplementedError : public JError {
 public:
  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;
};

/// A buffer can't take what has to go into it.
class JBufferSizeError : public JError {
 public:
  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;
};

/// A file or a stream ended where more was expected.
class EndOfFileError : public JError {
 public:
  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;
};

/// A parameter in an XML parameter document is missing or wrong. The sub-node may be null.
class JXmlParamsError : public JError {
 public:
  JXmlParamsError(const char* szParam, const char* szSubNode)
      : m_sParam(szParam != nullptr ? szParam : ""), m_sSubNode(szSubNode != nullptr ? szSubNode : "") {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  std::string m_sParam;
  std::string m_sSubNode;
};

namespace qm_utils {

/// A function isn't in the table in which it was looked up.
class JFuncMapError : public JError {
 public:
  explicit JFuncMapError(std::string sFunction) : m_sFunction(std::move(sFunction)) {}

  using JError::getMessage;
  void getMessage(char* szBuf, std::size_t iBufLen) const override;

 private:
  std::string m_sFunction;
};

}  // namespace qm_utils
