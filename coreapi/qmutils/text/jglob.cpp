#include "coreapi/qmutils/text/jglob.h"

#include <cstddef>

namespace {

constexpr std::size_t kNone = std::string_view::npos;

/// What one element of a pattern, a star excepted, says to one byte of the text.
struct Step {
  bool matches;
  std::size_t next;  ///< where the pattern goes on
};

/// Reads one byte of a set at `at`, a "\" in front of it aside, and moves behind it. False at the pattern's
/// end.
bool takeSetByte(std::string_view sPattern, std::size_t& at, unsigned char& byte) noexcept {
  if (at < sPattern.size() && sPattern[at] == '\\') {
    ++at;
  }
  if (at >= sPattern.size()) {
    return false;
  }
  byte = static_cast<unsigned char>(sPattern[at++]);
  return true;
}

/// A set, from behind its "[".
Step stepSet(std::string_view sPattern, std::size_t at, unsigned char byte) noexcept {
  bool matches = false;
  while (at < sPattern.size() && sPattern[at] != ']') {
    unsigned char low = 0;
    if (!takeSetByte(sPattern, at, low)) {
      return {false, kNone};
    }
    unsigned char high = low;
    const bool isRange = at + 1 < sPattern.size() && sPattern[at] == '-' && sPattern[at + 1] != ']';
    if (isRange && !takeSetByte(sPattern, ++at, high)) {
      return {false, kNone};
    }
    matches = matches || (low <= byte && byte <= high);
  }
  return at < sPattern.size() ? Step{matches, at + 1} : Step{false, kNone};
}

Step step(std::string_view sPattern, std::size_t at, char cByte) noexcept {
  switch (sPattern[at]) {
    case '?':
      return {true, at + 1};
    case '[':
      return stepSet(sPattern, at + 1, static_cast<unsigned char>(cByte));
    case '\\':
      return at + 1 < sPattern.size() ? Step{sPattern[at + 1] == cByte, at + 2} : Step{false, kNone};
    default:
      return {sPattern[at] == cByte, at + 1};
  }
}

}  // namespace

// Every element but the star takes exactly one byte, so the first place where the elements behind a star fit
// is as good as any later one: when a further star follows, only that one's run ever has to grow.
bool qm_utils::matchesGlob(std::string_view sPattern, std::string_view sText) noexcept {
  std::size_t pattern = 0;
  std::size_t text = 0;
  std::size_t behindStar = kNone;
  std::size_t runEnd = 0;
  while (true) {
    if (pattern < sPattern.size() && sPattern[pattern] == '*') {
      behindStar = ++pattern;
      runEnd = text;
      if (behindStar == sPattern.size()) {
        return true;
      }
      continue;
    }
    if (text == sText.size()) {
      return pattern == sPattern.size();
    }
    if (pattern < sPattern.size()) {
      const Step element = step(sPattern, pattern, sText[text]);
      if (element.matches) {
        pattern = element.next;
        ++text;
        continue;
      }
    }
    if (behindStar == kNone) {
      return false;
    }
    pattern = behindStar;
    text = ++runEnd;
  }
}
