#include "qmactivexctrl/qmstorageaccesscontroller/environmenttext.h"

#include <utility>

namespace qm_control {

std::vector<std::string> splitEnvironment(std::string_view sText) {
  enum class State { kBetween, kPlain, kQuoted, kEscape };

  std::vector<std::string> tokens;
  std::string sToken;
  State eState = State::kBetween;
  for (const char c : sText) {
    switch (eState) {
      case State::kBetween:
        if (c == '"') {
          eState = State::kQuoted;
        } else if (c != ' ') {
          sToken += c;
          eState = State::kPlain;
        }
        break;
      case State::kPlain:
      case State::kQuoted:
        if (c == (eState == State::kPlain ? ' ' : '"')) {
          tokens.push_back(std::exchange(sToken, {}));
          eState = State::kBetween;
        } else if (c == '\\' && eState == State::kQuoted) {
          eState = State::kEscape;
        } else {
          sToken += c;
        }
        break;
      case State::kEscape:
        sToken += c;
        eState = State::kQuoted;
        break;
    }
  }
  if (!sToken.empty()) {
    tokens.push_back(std::move(sToken));
  }
  return tokens;
}

}  // namespace qm_control
