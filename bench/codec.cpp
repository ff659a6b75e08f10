// UTF-8 to 16-bit text and back, against ICU's u_strFromUTF8 and u_strToUTF8. Both sides convert the same
// NUL-ended texts, whose length neither is told, between buffers whose size both are. ICU checks more:
// continuation bytes and pairs of surrogates.
//
//   text of 64 KiB     ASCII, Cyrillic, CJK, and several scripts mixed; words in random order, so that no
//   branch can be
//                      learned by heart
//   names of 60 bytes  the same kinds, a thousand short texts in turn, such as the members of the control are
//   given; for
//                      the record

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <unicode/ustring.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmutils/text/jutf8codec.h"

namespace {

struct Script {
  const char* name;
  const char* words;
  const char* space;
  double goal;
};

constexpr Script kScripts[] = {
    {"ASCII",
     "camera entrance hall recording started at ten alarm 12 of the main door was raised by north gate", " ",
     2},
    {"Cyrillic",
     "камера входная дверь запись начата в десять часов тревога на главном входе поднята у ворот 12", " ", 1},
    {"CJK", "摄像机 正门大厅 录像 从 十点开始 记录至下午三点 结束 报警 在主入口 触发 由于 北门的 传感器",
     "，", 1},
    {"mixed", "camera Вход 12 摄像机 hall «дверь» é ü 正门 recording façade naïve тревога 録画 north ворот",
     " ", 1},
};

/// Words in random order up to a number of bytes, and the same text in 16-bit units.
struct Text {
  std::string utf8;
  std::u16string wide;
};

std::vector<Text> makeTexts(const Script& script, std::size_t size, std::size_t count) {
  std::vector<std::string> words;
  std::istringstream source(script.words);
  for (std::string word; source >> word;) {
    words.push_back(word + script.space);
  }
  std::mt19937 random(20110303);
  std::vector<Text> texts(count);
  for (Text& text : texts) {
    std::string word = words[random() % words.size()];
    while (text.utf8.size() + word.size() <= size) {
      text.utf8 += word;
      word = words[random() % words.size()];
    }
    text.wide = JUTF8Codec::toWide(text.utf8.c_str());
  }
  return texts;
}

/// Converts texts of up to `size` bytes, a number of times all of them. `kOurs` says by whom.
template <bool kOurs>
class Converter {
 public:
  Converter(const std::vector<Text>& texts, std::size_t size, std::size_t rounds)
      : m_texts(texts), m_rounds(rounds), m_bytes(size + 1), m_units(size + 1) {}

  double toUtf8() {
    return qm_bench::seconds([this] {
      for (std::size_t i = 0; i < m_rounds; ++i) {
        for (const Text& text : m_texts) {
          toUtf8(text);
          qm_bench::keep(m_bytes.data());
        }
      }
    });
  }

  double toWide() {
    return qm_bench::seconds([this] {
      for (std::size_t i = 0; i < m_rounds; ++i) {
        for (const Text& text : m_texts) {
          toWide(text);
          qm_bench::keep(m_units.data());
        }
      }
    });
  }

  /// Whether both directions give every text.
  bool isRight() {
    return std::all_of(m_texts.begin(), m_texts.end(), [this](const Text& text) {
      toUtf8(text);
      toWide(text);
      return text.utf8 == m_bytes.data() && text.wide == m_units.data();
    });
  }

 private:
  void toUtf8(const Text& text) {
    if constexpr (kOurs) {
      JUTF8Codec::toUtf8(text.wide.c_str(), m_bytes.data(), static_cast<std::ptrdiff_t>(m_bytes.size()));
    } else {
      UErrorCode error = U_ZERO_ERROR;
      u_strToUTF8(m_bytes.data(), static_cast<std::int32_t>(m_bytes.size()), nullptr, text.wide.c_str(), -1,
                  &error);
    }
  }

  void toWide(const Text& text) {
    if constexpr (kOurs) {
      JUTF8Codec::toWide(text.utf8.c_str(), m_units.data(), static_cast<std::ptrdiff_t>(m_units.size()));
    } else {
      UErrorCode error = U_ZERO_ERROR;
      u_strFromUTF8(m_units.data(), static_cast<std::int32_t>(m_units.size()), nullptr, text.utf8.c_str(), -1,
                    &error);
    }
  }

  const std::vector<Text>& m_texts;
  std::size_t m_rounds;
  std::vector<char> m_bytes;
  std::vector<char16_t> m_units;
};

/// Both directions of one kind of text. Returns whether both sides gave the right texts.
bool compareBoth(const Script& script, const std::string& sKind, std::size_t size, std::size_t count,
                 bool bGoal) {
  constexpr std::size_t kBytesInAll = 64 << 20;
  const std::vector<Text> texts = makeTexts(script, size, count);
  const std::size_t rounds = kBytesInAll / (size * count);
  Converter<true> ours(texts, size, rounds);
  Converter<false> peer(texts, size, rounds);
  if (!ours.isRight() || !peer.isRight()) {
    std::fprintf(stderr, "codec: %s %s went wrong\n", script.name, sKind.c_str());
    return false;
  }
  const double goal = bGoal ? script.goal : 0;
  const std::string sName = std::string(script.name) + ", " + sKind;
  qm_bench::compare(
      {sName + ", UTF-8 to 16-bit", "ICU u_strFromUTF8", goal}, [&] { return ours.toWide(); },
      [&] { return peer.toWide(); });
  qm_bench::compare(
      {sName + ", 16-bit to UTF-8", "ICU u_strToUTF8", goal}, [&] { return ours.toUtf8(); },
      [&] { return peer.toUtf8(); });
  return true;
}

}  // namespace

int main() {
  bool bRight = true;
  for (const Script& script : kScripts) {
    bRight = compareBoth(script, "text of 64 KiB", 64 << 10, 1, true) && bRight;
  }
  for (const Script& script : kScripts) {
    bRight = compareBoth(script, "names of 60 bytes", 60, 1000, false) && bRight;
  }
  return bRight ? 0 : 1;
}
