#include "coreapi/qmutils/rpc/owedanswers.h"

#include <algorithm>

#include "coreapi/qmutils/rpc/rpcline.h"

namespace qm_utils {

bool OwedAnswers::settle(std::string_view sLine) {
  auto last = m_requests.begin();
  if (sLine == rpc_line::kPong) {
    const auto ping = std::find(m_requests.begin(), m_requests.end(), Request::kPing);
    last = ping != m_requests.end() ? ping : last;
  }
  if (last != m_requests.end()) {
    m_requests.erase(m_requests.begin(), last + 1);
  }
  return m_requests.empty();
}

bool OwedAnswers::isUncertain() const noexcept {
  return std::find(m_requests.begin(), m_requests.end(), Request::kNotify) != m_requests.end();
}

}  // namespace qm_utils
