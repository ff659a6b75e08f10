#pragma once

#include "coreapi/platform/threadslot.h"

/// One slot that holds a value of a pointer's size for each thread, 0 at first. Any thread may use it for its
/// own value. Values aren't freed with their threads: they are the user's.
class JThreadLocalStorage {
 public:
  /// Takes a slot. When none is left, a WARNING is logged and the object stays invalid.
  JThreadLocalStorage();
  ~JThreadLocalStorage();
  JThreadLocalStorage(const JThreadLocalStorage&) = delete;
  JThreadLocalStorage& operator=(const JThreadLocalStorage&) = delete;

  bool isValid() const noexcept;

  /// The calling thread's value. An invalid object fails an assertion, logs at ERROR and throws JTextError.
  void* getValue() const;

  /// Stores the calling thread's value. Throws JSysError "TlsSetValue": EINVAL on an invalid object, ENOMEM.
  void setValue(void* pValue);

 private:
  qm_platform::ThreadSlot m_slot;
};
