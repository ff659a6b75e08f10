#include "coreapi/platform/childprocess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "coreapi/platform/descriptor.h"
#include "coreapi/platform/faultseam.h"

namespace qm_platform {

namespace {

constexpr const char* kNullDevice = "/dev/null";
constexpr int kFirstOther = 3;  ///< the first descriptor behind the standard ones

/// The error that a test wants of this call; 0 to go ahead.
int wantedError() noexcept {
  const Fault fault = takeFault(Seam::kProcess);
  return fault.kind == FaultKind::kError ? fault.error : 0;
}

/// `waitid` on one child, again and again until no signal interrupts it.
int waitForChild(int child, int options, siginfo_t& info) noexcept {
  for (;;) {
    const Fault fault = takeFault(Seam::kProcess);
    if (fault.kind == FaultKind::kError) {
      return fault.error;
    }
    info = {};
    if (fault.kind != FaultKind::kInterrupt &&
        ::waitid(P_PID, static_cast<id_t>(child), &info, options) == 0) {
      return 0;
    }
    if (fault.kind != FaultKind::kInterrupt && errno != EINTR) {
      return errno;
    }
  }
}

/// What the child does before its program starts, and how it starts.
class Preparation {
 public:
  Preparation() noexcept {
    m_error = ::posix_spawn_file_actions_init(&m_actions);
    if (m_error == 0) {
      m_error = ::posix_spawnattr_init(&m_attributes);
      m_initialised = m_error == 0 ? 2 : 1;
    }
  }
  ~Preparation() {
    if (m_initialised > 1) {
      ::posix_spawnattr_destroy(&m_attributes);
    }
    if (m_initialised > 0) {
      ::posix_spawn_file_actions_destroy(&m_actions);
    }
  }
  Preparation(const Preparation&) = delete;
  Preparation& operator=(const Preparation&) = delete;

  void setStandard(const std::array<int, 3>& descriptors) noexcept {
    for (int i = 0; i < kFirstOther; ++i) {
      const int descriptor = descriptors[static_cast<std::size_t>(i)];
      add([&] {
        return descriptor == kNoDescriptor
                   ? ::posix_spawn_file_actions_addopen(&m_actions, i, kNullDevice, O_RDWR, 0)
                   : ::posix_spawn_file_actions_adddup2(&m_actions, descriptor, i);
      });
    }
    // What the host has opened without close-on-exec stays away from the child too.
    add([&] { return ::posix_spawn_file_actions_addclosefrom_np(&m_actions, kFirstOther); });
  }

  void setSignalsAndSession() noexcept {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    add([&] { return ::posix_spawnattr_setsigmask(&m_attributes, &none); });
    add([&] { return ::posix_spawnattr_setsigdefault(&m_attributes, &all); });
    add([&] {
      return ::posix_spawnattr_setflags(&m_attributes,
                                        POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
    });
  }

  int error() const noexcept { return m_error; }
  const posix_spawn_file_actions_t* actions() const noexcept { return &m_actions; }
  const posix_spawnattr_t* attributes() const noexcept { return &m_attributes; }

 private:
  /// Carries out a step unless one before it has failed.
  template <typename Step>
  void add(Step step) noexcept {
    if (m_error == 0) {
      m_error = step();
    }
  }

  posix_spawn_file_actions_t m_actions;
  posix_spawnattr_t m_attributes;
  int m_initialised = 0;  ///< how many of the two
  int m_error = 0;
};

/// The texts as the system's calls take them; valid while they are.
std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) {
    pointers.push_back(const_cast<char*>(text.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

/// Children that were given up while they ran.
class Abandoned {
 public:
  void add(int child) {
    const std::lock_guard lock(m_mutex);
    m_children.push_back(child);
    removeEnded();
  }

  void sweep() {
    const std::lock_guard lock(m_mutex);
    removeEnded();
  }

 private:
  void removeEnded() {
    std::erase_if(m_children, [](int child) {
      siginfo_t info;
      const int error = waitForChild(child, WEXITED | WNOHANG, info);
      return error == ECHILD || (error == 0 && info.si_pid != 0);
    });
  }

  std::mutex m_mutex;
  std::vector<int> m_children;
};

/// Never destroyed: the last object of a host may give up a child at the very end.
Abandoned& abandoned() {
  static Abandoned& list = *new Abandoned;
  return list;
}

}  // namespace

int makePipe(int& readEnd, int& writeEnd) noexcept {
  readEnd = kNoDescriptor;
  writeEnd = kNoDescriptor;
  int error = wantedError();
  int ends[2];
  if (error == 0) {
    error = ::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
  }
  if (error == 0) {
    readEnd = ends[0];
    writeEnd = ends[1];
  }
  return error;
}

int copyEnvironment(std::vector<std::string>& copy) {
  const int error = wantedError();
  copy.clear();
  for (char** entry = error == 0 ? environ : nullptr; entry != nullptr && *entry != nullptr; ++entry) {
    copy.emplace_back(*entry);
  }
  return error;
}

int startChild(const ChildPlan& plan, int& child) {
  child = kNoChild;
  abandoned().sweep();
  if (plan.arguments.empty()) {
    return ENOENT;
  }
  Preparation preparation;
  preparation.setStandard(plan.standard);
  preparation.setSignalsAndSession();
  int error = preparation.error();
  if (error == 0) {
    error = wantedError();
  }
  if (error == 0) {
    const std::vector<char*> arguments = pointersTo(plan.arguments);
    const std::vector<char*> environment = pointersTo(plan.environment);
    pid_t started = kNoChild;
    error = ::posix_spawnp(&started, arguments.front(), preparation.actions(), preparation.attributes(),
                           arguments.data(), environment.data());
    child = error == 0 ? started : kNoChild;
  }
  return error;
}

int awaitChild(int child, bool block, bool& ended) noexcept {
  siginfo_t info;
  const int error = waitForChild(child, WEXITED | WNOWAIT | (block ? 0 : WNOHANG), info);
  ended = error == 0 && info.si_pid != 0;
  return error;
}

int takeExitCode(int child, int& exitCode) noexcept {
  constexpr int kSignalled = 128;
  siginfo_t info;
  const int error = waitForChild(child, WEXITED, info);
  if (error == 0) {
    exitCode = info.si_code == CLD_EXITED ? info.si_status : kSignalled + info.si_status;
  }
  return error;
}

void abandonChild(int child) {
  abandoned().add(child);
}

}  // namespace qm_platform
