#include <exception>
#include <vector>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLogState.h"
#include "coreapi/qmutils/log/JLogThreadedOutput.h"

/// Every program that links the library asks for this name, so that the linker takes this file out of a
/// static library although no code calls it.
extern "C" {
extern const char qmLogIsLinked;
const char qmLogIsLinked = 1;
}

namespace {

/// Milliseconds that outputs get for what they still hold when the program ends.
constexpr int kExitTimeout = 1000;

void receive(int iLevel, const char* szText, const char* szFile, int iLine, const char* szTag) {
  JLog::log(static_cast<std::uint32_t>(iLevel), szText, szFile, iLine, szTag, nullptr);
}

/// Lets the outputs write what they hold and end their threads, and goes on after the time whether they have
/// or not. The outputs stay: later destructors that log have their lines written at once.
void flushAtExit() noexcept {
  try {
    const auto outputs = qm_utils::logOutputs();
    std::vector<JLogThreadedOutput*> running;
    for (const auto& pOutput : outputs) {
      auto* pThreaded = dynamic_cast<JLogThreadedOutput*>(pOutput.get());
      if (pThreaded != nullptr && !pThreaded->stop(kExitTimeout, false)) {
        running.push_back(pThreaded);
      }
    }
    const std::int64_t iEnd = qm_platform::steadyClockNanoseconds() + std::int64_t{kExitTimeout} * 1'000'000;
    for (JLogThreadedOutput* pThreaded : running) {
      const std::int64_t iLeft = (iEnd - qm_platform::steadyClockNanoseconds()) / 1'000'000;
      if (pThreaded->wait(iLeft > 0 ? static_cast<std::int32_t>(iLeft) : 0)) {
        pThreaded->stop(0, true);
      }
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
  } catch (const std::exception&) {
    // Out of memory: what is left isn't written.
  }
}

/// The log's place behind the hook, from the start of the program to its end. It is made before, and so goes
/// after, the objects of static storage of everybody else, which may log from their constructors and
/// destructors.
struct Installation {
  Installation() noexcept { qm_err::setLogHook(receive); }
  ~Installation() { flushAtExit(); }
};

[[gnu::init_priority(101)]] Installation g_installation;

}  // namespace
