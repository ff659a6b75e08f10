#include "coreapi/qmutils/log/jtraceableobject.h"

#include <atomic>
#include <cstdio>
#include <set>
#include <utility>

#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/thread/jmutex.h"

namespace {

/// The names of all living traceable objects. Never destroyed: objects of static storage outlive it
/// otherwise.
struct NameRegistry {
  JMutex mutex;
  std::set<std::string> names;
  std::uint64_t uLastId = 0;
};

NameRegistry& nameRegistry() {
  static NameRegistry& registry = *new NameRegistry;
  return registry;
}

std::string addressName(const void* pObject) {
  char szName[32];
  std::snprintf(szName, sizeof szName, "[%p]", pObject);
  return szName;
}

}  // namespace

const char* const JTraceableObject::kDefaultName = "<default name>";

JTraceableObject::JTraceableObject(std::string sName, std::uint32_t* pTraceMask, Mask mask)
    : m_pTraceMask(pTraceMask) {
  if (pTraceMask != nullptr && mask == Mask::kCopied) {
    m_uOwnMask = *pTraceMask;
    m_pTraceMask = &m_uOwnMask;
  }
  enterName(std::move(sName));
}

JTraceableObject::~JTraceableObject() {
  leaveName();
}

std::uint32_t* JTraceableObject::getTraceMask() const {
  return m_pTraceMask;
}

const std::string& JTraceableObject::getName() const {
  return m_sName;
}

bool JTraceableObject::isTraceEnabled(std::uint32_t uBits) const {
  return m_pTraceMask != nullptr &&
         (std::atomic_ref(*m_pTraceMask).load(std::memory_order_relaxed) & uBits) != 0;
}

void JTraceableObject::trace(const char* szFormat, ...) const {
  va_list arguments;
  va_start(arguments, szFormat);
  traceV(szFormat, arguments);
  va_end(arguments);
}

void JTraceableObject::traceV(const char* szFormat, va_list arguments) const {
  JLog::logV(qm_err::kLogTrace, this, szFormat, arguments);
}

void JTraceableObject::setTraceName(std::string sName) {
  leaveName();
  enterName(std::move(sName));
}

void JTraceableObject::enterName(std::string sName) {
  m_sName = sName == kDefaultName ? addressName(this) : std::move(sName);
  NameRegistry& registry = nameRegistry();
  const JAutoLock lock(registry.mutex);
  if (m_uId == 0) {
    m_uId = ++registry.uLastId;
  }
  m_bEntered = registry.names.insert(m_sName).second;
  if (!m_bEntered) {
    m_sName.append("[").append(std::to_string(m_uId)).append("]");
    m_bEntered = registry.names.insert(m_sName).second;
  }
}

void JTraceableObject::leaveName() noexcept {
  if (!m_bEntered) {
    return;
  }
  try {
    NameRegistry& registry = nameRegistry();
    const JAutoLock lock(registry.mutex);
    registry.names.erase(m_sName);
  } catch (const std::exception&) {
    // The name stays taken; the object goes all the same.
  }
  m_bEntered = false;
}
