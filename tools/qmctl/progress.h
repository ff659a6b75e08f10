#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "tools/qmctl/commandline.h"

namespace qmctl {

/// How far a long work is, on one line of a terminal, which is cleared at the end unless it is kept. Shows
/// nothing where standard error is no terminal.
class Progress {
 public:
  explicit Progress(Context& context) : m_out(context.error), m_bShown(context.bShowProgress) {}
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// A bar. With a total of 0, which isn't known then, nothing is shown.
  void showPart(std::uint64_t uDone, std::uint64_t uTotal);

  /// A text that takes the place of the last one.
  void showText(const std::string& sText);

  /// Leaves on the terminal what was shown last.
  void keep();

 private:
  std::ostream& m_out;
  bool m_bShown;
  std::uint64_t m_uPercent = 101;  ///< shown last; none yet
  std::size_t m_uLength = 0;       ///< of the text on the line
};

}  // namespace qmctl
