#include "coreapi/qmutils/thread/jwaitable.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include "coreapi/platform/waitable.h"
#include "coreapi/qmutils/error/jerror.h"

namespace {

/// Hands a new handle on, or throws what kept it from being made.
template <class Object>
std::shared_ptr<Object> created(std::shared_ptr<Object> pObject, int iError, const char* szFunction) {
  if (!pObject) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), szFunction);
  }
  return pObject;
}

std::shared_ptr<qm_platform::Waitable> newEvent(bool bManualReset, bool bInitialState) {
  int iError = 0;
  auto pEvent = qm_platform::createEvent(bManualReset, bInitialState, iError);
  return created(std::move(pEvent), iError, "CreateEvent");
}

std::shared_ptr<qm_platform::Waitable> newSemaphore(std::int32_t iInitialCount, std::int32_t iMaximumCount) {
  int iError = 0;
  auto pSemaphore = qm_platform::createSemaphore(iInitialCount, iMaximumCount, iError);
  return created(std::move(pSemaphore), iError, "CreateSemaphore");
}

std::shared_ptr<qm_platform::Waitable> newTimer(bool bManualReset) {
  int iError = 0;
  auto pTimer = qm_platform::createTimer(bManualReset, iError);
  return created(std::move(pTimer), iError, "CreateWaitableTimer");
}

std::chrono::microseconds toInterval(JTime time) {
  constexpr std::uint64_t kMost = std::chrono::microseconds::max().count();
  return std::chrono::microseconds(std::min(time.getMicroseconds(), kMost));
}

}  // namespace

bool JWaitableObject::waitOn(Handle handle, std::int32_t iTimeoutMs) {
  const qm_platform::WaitOutcome outcome = qm_platform::waitForOne(handle, iTimeoutMs);
  if (outcome.result == qm_platform::WaitResult::kFailed) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(outcome.iError), "WaitForSingleObject");
  }
  return outcome.result == qm_platform::WaitResult::kSignalled;
}

void JWaitableObject::waitOn(Handle handle) {
  if (!waitOn(handle, qm_platform::kInfinite)) {
    QM_THROW(JTimeoutError);
  }
}

JWaitableObjectImpl::JWaitableObjectImpl(std::shared_ptr<qm_platform::Waitable> pHandle)
    : m_pHandle(std::move(pHandle)) {}

JWaitableObjectImpl::~JWaitableObjectImpl() = default;

bool JWaitableObjectImpl::wait(std::int32_t iTimeoutMs) {
  return waitOn(m_pHandle.get(), iTimeoutMs);
}

void JWaitableObjectImpl::wait() {
  waitOn(m_pHandle.get());
}

JWaitableObject::Handle JWaitableObjectImpl::getHandle() const {
  return m_pHandle.get();
}

JFlag::JFlag(bool bManualReset, bool bInitialState, std::string sName)
    : JWaitableObjectImpl(newEvent(bManualReset, bInitialState)), m_sName(std::move(sName)) {}

void JFlag::set() noexcept {
  event().set();
}

void JFlag::reset() noexcept {
  event().reset();
}

qm_platform::Event& JFlag::event() const noexcept {
  return static_cast<qm_platform::Event&>(*m_pHandle);
}

JSemaphore::JSemaphore(std::int32_t iInitialCount, std::int32_t iMaximumCount)
    : JWaitableObjectImpl(newSemaphore(iInitialCount, iMaximumCount)) {}

std::int32_t JSemaphore::release(std::int32_t iCount) {
  std::int32_t iPrevious = 0;
  const int iError = static_cast<qm_platform::Semaphore&>(*m_pHandle).release(iCount, iPrevious);
  if (iError != 0) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(iError), "ReleaseSemaphore");
  }
  return iPrevious;
}

JWaitableTimer::JWaitableTimer(bool bManualReset) : JWaitableObjectImpl(newTimer(bManualReset)) {}

void JWaitableTimer::start(JTime due) {
  timer().start(toInterval(due), std::chrono::milliseconds(m_iPeriodMs));
}

void JWaitableTimer::setPeriod(JTime period) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  m_iPeriodMs = static_cast<std::int32_t>(std::min(period.getMicroseconds() / 1000, kMost));
}

JTime JWaitableTimer::getPeriod() const {
  return JTime(std::chrono::milliseconds(m_iPeriodMs));
}

void JWaitableTimer::cancel() {
  timer().cancel();
}

void JWaitableTimer::cancelAndClear() {
  cancel();
  wait(0);
}

void JWaitableTimer::cancelAndSignal() {
  cancel();
  timer().start(std::chrono::microseconds(0), std::chrono::milliseconds(0));
}

qm_platform::Timer& JWaitableTimer::timer() const noexcept {
  return static_cast<qm_platform::Timer&>(*m_pHandle);
}

JWaitForMultipleObjects::JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second,
                                                 bool bWaitAll)
    : m_bWaitAll(bWaitAll) {
  add(first);
  add(second);
}

JWaitForMultipleObjects::JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second,
                                                 const JWaitableObject& third, bool bWaitAll)
    : JWaitForMultipleObjects(first, second, bWaitAll) {
  add(third);
}

JWaitForMultipleObjects::JWaitForMultipleObjects(const JWaitableObject& first, const JWaitableObject& second,
                                                 const JWaitableObject& third, const JWaitableObject& fourth,
                                                 bool bWaitAll)
    : JWaitForMultipleObjects(first, second, third, bWaitAll) {
  add(fourth);
}

JWaitForMultipleObjects::JWaitForMultipleObjects(std::size_t count, const JWaitableObject* const* ppObjects,
                                                 bool bWaitAll)
    : m_bWaitAll(bWaitAll) {
  if (count == 0) {
    QM_THROW(JTextError, "empty vector!");
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (ppObjects[i] == nullptr) {
      QM_THROW(JNullPointerError, "JWaitableObject");
    }
    add(*ppObjects[i]);
  }
}

JWaitForMultipleObjects::JWaitForMultipleObjects(const std::vector<JWaitableObject*>& objects, bool bWaitAll)
    : JWaitForMultipleObjects(objects.size(), objects.data(), bWaitAll) {}

void JWaitForMultipleObjects::add(const JWaitableObject& object) {
  const JWaitableObject::Handle handle = object.getHandle();
  m_handles.push_back(handle != nullptr ? handle->shared_from_this() : nullptr);
  m_pointers.push_back(handle);
}

std::size_t JWaitForMultipleObjects::wait() const {
  const qm_platform::WaitOutcome outcome = m_bWaitAll
                                               ? qm_platform::waitForAll(m_pointers, qm_platform::kInfinite)
                                               : qm_platform::waitForAny(m_pointers, qm_platform::kInfinite);
  if (outcome.result != qm_platform::WaitResult::kSignalled) {
    QM_THROW(JSysError, static_cast<std::uint32_t>(outcome.iError), "WaitForMultipleObjects");
  }
  return outcome.index;
}
