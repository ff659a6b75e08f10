#include "tools/qmctl/progress.h"

#include <algorithm>
#include <ostream>

namespace qmctl {

namespace {

constexpr std::size_t kBarWidth = 40;

}  // namespace

Progress::~Progress() {
  if (m_uLength > 0) {
    m_out << '\r' << std::string(m_uLength, ' ') << '\r' << std::flush;
  }
}

void Progress::showPart(std::uint64_t uDone, std::uint64_t uTotal) {
  if (!m_bShown || uTotal == 0) {
    return;
  }
  const auto uPercent = static_cast<std::uint64_t>(100.0 * static_cast<double>(std::min(uDone, uTotal)) /
                                                   static_cast<double>(uTotal));
  if (uPercent == m_uPercent) {
    return;
  }
  m_uPercent = uPercent;
  const std::size_t uFull = static_cast<std::size_t>(uPercent) * kBarWidth / 100;
  const std::string sNumber = std::to_string(uPercent);
  showText('[' + std::string(uFull, '#') + std::string(kBarWidth - uFull, '.') + "] " +
           std::string(3 - sNumber.size(), ' ') + sNumber + '%');
}

void Progress::showText(const std::string& sText) {
  if (!m_bShown) {
    return;
  }
  m_out << '\r' << sText << std::string(m_uLength - std::min(m_uLength, sText.size()), ' ') << std::flush;
  m_uLength = sText.size();
}

void Progress::keep() {
  if (m_uLength > 0) {
    m_out << '\n' << std::flush;
    m_uLength = 0;
  }
}

}  // namespace qmctl
