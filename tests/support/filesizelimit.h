#pragma once

#include <csignal>
#include <sys/resource.h>

namespace qm_test {

/// Lets no file of the process grow beyond a size for its lifetime; a write past it comes short, the next one
/// fails.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t uBytes) : m_previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_previous);
    const rlimit limit{uBytes, m_previous.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_previous);
    std::signal(SIGXFSZ, m_previousHandler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*m_previousHandler)(int);
  rlimit m_previous{};
};

}  // namespace qm_test
