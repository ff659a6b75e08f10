#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "coreapi/platform/faultseam.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "tests/support/thrownby.h"

namespace qm_test {

/// A thread whose body is given as a function; stopped with the object.
class Task : public JThread {
 public:
  explicit Task(std::function<void()> body, std::string sName = "task")
      : JThread(std::move(sName)), m_body(std::move(body)) {}
  ~Task() override {
    if (getState() != kEnded) {  // ended already when it deletes itself
      stop();
    }
  }
  void run() override { m_body(); }

 private:
  std::function<void()> m_body;
};

/// Several threads, started together and stopped together.
class Crew {
 public:
  explicit Crew(const std::vector<std::function<void()>>& bodies) {
    for (const auto& body : bodies) {
      m_tasks.push_back(std::make_unique<Task>(body));
      m_tasks.back()->start();
    }
  }
  void stop() {
    for (const auto& pTask : m_tasks) {
      pTask->stop();
    }
  }

 private:
  std::vector<std::unique_ptr<Task>> m_tasks;
};

/// Returns when the system says that a thread, which is in its body, sleeps.
inline void untilAsleep(const JThread& thread) {
  const std::string sPath = "/proc/self/task/" + std::to_string(thread.getThreadId()) + "/stat";
  for (;;) {
    std::ifstream file(sPath);
    std::string sLine;
    std::getline(file, sLine);
    const std::size_t end = sLine.rfind(')');
    const bool bEntered = thread.getState() != JThread::kCreated;
    if (bEntered && end != std::string::npos && sLine.compare(end, 4, ") S ") == 0) {
      return;
    }
    std::this_thread::yield();
  }
}

/// What a call throws: "function: code" of a JSysError, the text of another error, empty when nothing.
template <class Call>
std::string systemFailureOf(Call call) {
  const auto [uCode, sText] = failureOf(call);
  return uCode != 0 ? sText + ": " + std::to_string(uCode) : sText;
}

/// Makes the n-th fallible call of threads and waits fail for a scope.
class ThreadFault {
 public:
  ThreadFault(std::uint64_t nth, int iError) {
    qm_platform::armFaults({static_cast<std::uint32_t>(qm_platform::Seam::kThread), nth,
                            qm_platform::FaultKind::kError, iError, false});
  }
  ~ThreadFault() { qm_platform::disarmFaults(); }
  ThreadFault(const ThreadFault&) = delete;
  ThreadFault& operator=(const ThreadFault&) = delete;
};

}  // namespace qm_test
