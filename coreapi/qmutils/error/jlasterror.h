#pragma once

#include <cstdint>
#include <string>

/// The last-error record: what went wrong last on a thread. Threads that `JThread` starts have one each. All
/// other threads of the process share one record, which belongs to the first of them that sets it.
namespace qm_err {

/// Stores the five values in the calling thread's record. On a thread that has none, and that doesn't own the
/// shared one, a message goes to the standard output and nothing is stored.
void setLastError(const std::string& sErrorClass, int iFirst, int iSecond, const std::string& sDescription,
                  std::uint32_t uSystemCode);

/// Reads the calling thread's record. With a system code other than 0 the description is the system's text
/// for it, ". " and the stored description. A thread without a record gets the class "Error", 0, -1 and a
/// text that says why.
void getLastError(std::string& sErrorClass, int& iFirst, int& iSecond, std::string& sDescription);

/// Gives the calling thread a fresh record. `JThread` calls it first on a new thread.
void attachThread();

/// Takes the calling thread's record away. `JThread` calls it last on its thread.
void detachThread() noexcept;

}  // namespace qm_err
