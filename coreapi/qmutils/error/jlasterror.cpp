#include "coreapi/qmutils/error/jlasterror.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>

#include "coreapi/platform/process.h"
#include "coreapi/platform/systemerror.h"

namespace qm_err {

namespace {

struct Record {
  std::string sErrorClass = "Uninitialized";
  int iFirst = 0;
  int iSecond = 0;
  std::string sDescription = "Uninitialized";
  std::uint32_t uSystemCode = 0;
};

/// The record of the threads that `JThread` didn't start, and the one thread that may use it.
struct Fallback {
  Record record;
  std::uint32_t uOwner;
};

thread_local std::unique_ptr<Record> t_pRecord;

struct SharedFallback {
  std::mutex mutex;
  std::optional<Fallback> fallback;
};

/// Never destroyed: threads of the host and destructors of static objects set errors until the very end.
SharedFallback& sharedFallback() {
  static SharedFallback& instance = *new SharedFallback;
  return instance;
}

/// The calling thread's record, or null. The fallback is touched by its owner alone, so it needs no lock once
/// found.
Record* findRecord(bool bCreateFallback) {
  if (t_pRecord) {
    return t_pRecord.get();
  }
  SharedFallback& shared = sharedFallback();
  const std::lock_guard lock(shared.mutex);
  if (!shared.fallback && bCreateFallback) {
    shared.fallback.emplace(Fallback{{}, qm_platform::threadId()});
  }
  return shared.fallback && shared.fallback->uOwner == qm_platform::threadId() ? &shared.fallback->record
                                                                               : nullptr;
}

bool fallbackExists() {
  SharedFallback& shared = sharedFallback();
  const std::lock_guard lock(shared.mutex);
  return shared.fallback.has_value();
}

}  // namespace

void setLastError(const std::string& sErrorClass, int iFirst, int iSecond, const std::string& sDescription,
                  std::uint32_t uSystemCode) {
  Record* pRecord = findRecord(true);
  if (pRecord == nullptr) {
    std::fputs(
        "It seems that qm_err::setLastError() is called from non-Quelmarin threads !! Error reporting will "
        "not work properly !\n",
        stdout);
    return;
  }
  *pRecord = {sErrorClass, iFirst, iSecond, sDescription, uSystemCode};
}

void getLastError(std::string& sErrorClass, int& iFirst, int& iSecond, std::string& sDescription) {
  const Record* pRecord = findRecord(false);
  if (pRecord == nullptr) {
    sErrorClass = "Error";
    iFirst = 0;
    iSecond = -1;
    sDescription =
        fallbackExists()
            ? "Error reporting failed: qm_err::set/getLastError() has been called from a thread that is not "
              "created by the Quelmarin JThread class."
            : "Error reporting failed: qm_err::setLastError() has never been called in this thread.";
    return;
  }
  sErrorClass = pRecord->sErrorClass;
  iFirst = pRecord->iFirst;
  iSecond = pRecord->iSecond;
  sDescription = pRecord->uSystemCode == 0
                     ? pRecord->sDescription
                     : qm_platform::systemErrorText(pRecord->uSystemCode) + ". " + pRecord->sDescription;
}

void attachThread() {
  t_pRecord = std::make_unique<Record>();
}

void detachThread() noexcept {
  t_pRecord.reset();
}

}  // namespace qm_err
