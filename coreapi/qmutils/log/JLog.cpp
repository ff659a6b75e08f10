#include "coreapi/qmutils/log/JLog.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>

#include "coreapi/platform/clocale.h"
#include "coreapi/platform/process.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLogState.h"
#include "coreapi/qmutils/log/JLogThreadedInput.h"
#include "coreapi/qmutils/log/JLogThreadedOutput.h"
#include "coreapi/qmutils/log/jtraceableobject.h"

using qm_utils::LogState;
using qm_utils::logState;

namespace {

constexpr std::string_view kNoClass = "_undef_";
constexpr std::string_view kPointerMark = " *";

/// Runs a step of the log that must not disturb whoever logs.
template <typename Step>
void quietly(Step step) noexcept {
  try {
    step();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  } catch (const std::exception&) {
    // Out of memory: the record is lost.
  }
}

/// Lets the first record of the process configure the log, and those of other threads wait for that.
void ensureConfigured(LogState& state) {
  if (state.bReady.load(std::memory_order_acquire)) {
    return;
  }
  if (dynamic_cast<JLogThreadedOutput*>(JThread::getCurrentThread()) != nullptr) {
    return;  // the configuration may be waiting for just this thread to end
  }
  const JAutoLock configuring(state.configuring);
  if (!state.bInitialised) {
    JLog::init();
  }
}

/// Whether the object's own mask keeps a record of this level back.
bool isKeptBack(std::uint32_t uLevel, const qm_utils::ITraceableObject* pObject) {
  if (pObject == nullptr || uLevel < JLog::kFirstObjectLevel || pObject->getTraceMask() == nullptr) {
    return false;
  }
  return uLevel >= 32 || !pObject->isTraceEnabled(1U << uLevel);
}

std::string_view className(const char* szClass) {
  std::string_view sClass = szClass != nullptr ? szClass : "";
  if (sClass.ends_with(kPointerMark)) {
    sClass.remove_suffix(kPointerMark.size());
  }
  return sClass.empty() ? kNoClass : sClass;
}

/// Passes a record to the outputs. The mutex is held.
void passOn(LogState& state, const JLog::Msg& record) {
  ++state.iRouting;
  // By index: an output that is called here may add another one.
  for (std::size_t i = 0; i < state.outputs.size(); ++i) {
    quietly([&] { state.outputs[i]->write(record); });
  }
  --state.iRouting;
}

}  // namespace

qm_utils::LogState::LogState() {
  scratch.uProcessId = qm_platform::processId();
  scratch.sUnit = qm_platform::runningModuleName();
}

LogState& qm_utils::logState() {
  static LogState& state = *new LogState;
  return state;
}

std::vector<std::shared_ptr<JLog::GenericOutput>> qm_utils::logOutputs() {
  LogState& state = logState();
  const JAutoLock lock(state.mutex);
  return state.outputs;
}

// ---------------------------------------------------------------------------------------------------------
// Making records and passing them on.

void JLog::log(std::uint32_t uLevel, const char* szText, const char* szFile, int iLine, const char* szClass,
               const qm_utils::ITraceableObject* pObject) noexcept {
  quietly([&] {
    if (isKeptBack(uLevel, pObject)) {
      return;
    }
    LogState& state = logState();
    ensureConfigured(state);
    const JAutoLock lock(state.mutex);
    if (state.iRouting != 0) {
      return;
    }
    Msg& record = state.scratch;  // process and unit are the same for all records
    record.uLevel = uLevel;
    record.sMessage.assign(szText, strnlen(szText, kMaxMessage));
    record.time = JTime::now();
    record.uThreadId = qm_platform::threadId();
    record.sInstance = pObject != nullptr ? pObject->getName() : state.sInstance;
    record.sFile = szFile != nullptr ? szFile : "";
    record.uLine = static_cast<std::uint32_t>(iLine);
    record.sClass = className(szClass);
    passOn(state, record);
  });
}

void JLog::logV(std::uint32_t uLevel, const qm_utils::ITraceableObject* pObject, const char* szFormat,
                va_list arguments) noexcept {
  quietly([&] {
    if (isKeptBack(uLevel, pObject)) {
      return;
    }
    char szText[kMaxMessage + 1];
    const int iLength = qm_platform::printC(szText, sizeof szText, szFormat, arguments);
    log(uLevel, iLength < 0 ? szFormat : szText, nullptr, 0, nullptr, pObject);
  });
}

void JLog::log(std::uint32_t uLevel, const char* szFormat, ...) noexcept {
  va_list arguments;
  va_start(arguments, szFormat);
  logV(uLevel, nullptr, szFormat, arguments);
  va_end(arguments);
}

void JLog::log(const qm_utils::ITraceableObject* pObject, std::uint32_t uLevel, const char* szFormat,
               ...) noexcept {
  va_list arguments;
  va_start(arguments, szFormat);
  logV(uLevel, pObject, szFormat, arguments);
  va_end(arguments);
}

void JLog::log(std::uint32_t uLevel, const qm_utils::ITraceableObject* pObject, const char* szFormat,
               ...) noexcept {
  va_list arguments;
  va_start(arguments, szFormat);
  logV(uLevel, pObject, szFormat, arguments);
  va_end(arguments);
}

bool JLog::isTaken(std::uint32_t uLevel) noexcept {
  bool bTaken = false;
  quietly([&] {
    LogState& state = logState();
    ensureConfigured(state);
    const JAutoLock lock(state.mutex);
    bTaken = std::any_of(state.outputs.begin(), state.outputs.end(),
                         [uLevel](const auto& pOutput) { return pOutput->takes(uLevel); });
  });
  return bTaken;
}

void JLog::route(const Msg& record) noexcept {
  quietly([&] {
    LogState& state = logState();
    ensureConfigured(state);
    const JAutoLock lock(state.mutex);
    if (state.iRouting == 0) {
      passOn(state, record);
    }
  });
}

void JLog::GenericInput::forward(const Msg& record) {
  route(record);
}

void JLog::setDefaultInstance(const std::string& sInstance) {
  LogState& state = logState();
  const JAutoLock lock(state.mutex);
  state.sInstance = sInstance;
}

// ---------------------------------------------------------------------------------------------------------
// Outputs and inputs.

void JLog::addLogOutput(std::unique_ptr<GenericOutput> pOutput) {
  if (pOutput == nullptr) {
    QM_THROW(JTextError, "JLog::addLogOutput() called with NULL pointer.");
  }
  LogState& state = logState();
  const JAutoLock lock(state.mutex);
  state.outputs.push_back(std::move(pOutput));
}

void JLog::addLogInput(std::unique_ptr<GenericInput> pInput) {
  if (pInput == nullptr) {
    QM_THROW(JTextError, "JLog::addLogInput() called with NULL pointer.");
  }
  LogState& state = logState();
  const JAutoLock lock(state.mutex);
  state.inputs.push_back(std::move(pInput));
}

namespace {

/// Stops what has a thread.
void stop(JLog::GenericOutput& output, int iTimeout, bool bWait) {
  if (auto* pThreaded = dynamic_cast<JLogThreadedOutput*>(&output)) {
    quietly([&] { pThreaded->stop(iTimeout, bWait); });
  }
}

void stop(JLog::GenericInput& input) {
  if (auto* pThreaded = dynamic_cast<JLogThreadedInput*>(&input)) {
    quietly([&] { pThreaded->stop(0, true); });
  }
}

}  // namespace

void JLog::stopOutputs(int iTimeout, bool bWait) {
  const auto outputs = qm_utils::logOutputs();
  for (const auto& pOutput : outputs) {
    stop(*pOutput, iTimeout, false);
  }
  if (bWait) {
    for (const auto& pOutput : outputs) {
      stop(*pOutput, iTimeout, true);
    }
  }
}

void JLog::deleteOutputs() {
  LogState& state = logState();
  std::vector<std::shared_ptr<GenericOutput>> outputs;
  {
    const JAutoLock lock(state.mutex);
    outputs.swap(state.outputs);
  }
  for (const auto& pOutput : outputs) {
    stop(*pOutput, 0, true);
  }
}

void JLog::deleteInputs() {
  LogState& state = logState();
  std::vector<std::shared_ptr<GenericInput>> inputs;
  {
    const JAutoLock lock(state.mutex);
    inputs.swap(state.inputs);
  }
  for (const auto& pInput : inputs) {
    stop(*pInput);
  }
}

void JLog::shutdown(int iTimeout) {
  if (iTimeout != 0) {
    stopOutputs(iTimeout, true);
  }
  deleteInputs();
  deleteOutputs();
}
