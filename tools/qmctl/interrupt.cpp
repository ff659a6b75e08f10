#include "tools/qmctl/interrupt.h"

#include <csignal>

#include "tools/qmctl/failure.h"

namespace {

volatile std::sig_atomic_t s_iAsked = 0;

extern "C" void keepRequest(int /*iSignal*/) {
  s_iAsked = 1;
}

}  // namespace

namespace qmctl {

Interrupt::Interrupt() {
  s_iAsked = 0;
  m_beforeInterrupt = std::signal(SIGINT, keepRequest);
  m_beforeTerminate = std::signal(SIGTERM, keepRequest);
  if (m_beforeInterrupt == SIG_IGN) {
    std::signal(SIGINT, SIG_IGN);  // in the background; the terminal's Ctrl-C is meant for others
  }
}

Interrupt::~Interrupt() {
  std::signal(SIGINT, m_beforeInterrupt);
  std::signal(SIGTERM, m_beforeTerminate);
}

void Interrupt::check() const {
  if (s_iAsked != 0) {
    throw Failure(kInterrupted, "interrupted");
  }
}

}  // namespace qmctl
