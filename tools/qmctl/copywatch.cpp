#include "tools/qmctl/copywatch.h"

#include <utility>

namespace qmctl {

namespace {

/// Between two looks, in milliseconds.
constexpr int kPeriod = 250;

}  // namespace

CopyWatch::CopyWatch(JQMStorageAccessCtrl& control, std::function<void()> show)
    : JThread("CopyWatch"), m_control(control), m_show(std::move(show)) {
  start();
}

CopyWatch::~CopyWatch() {
  finish();
}

int CopyWatch::finish() {
  m_bFinished = true;
  m_interrupts.wake();
  stop();
  return m_interrupts.getCaught();
}

void CopyWatch::run() {
  while (!m_bFinished) {
    if (m_show) {
      m_show();
    }
    m_interrupts.await(kPeriod);
    if (m_interrupts.getCaught() != 0) {
      // In each round: one that comes before the copy has begun has no effect.
      m_control.cancelCopy();
    }
  }
}

}  // namespace qmctl
