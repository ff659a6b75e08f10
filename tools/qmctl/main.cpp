#include <iostream>

#include "coreapi/platform/terminal.h"
#include "tools/qmctl/commandline.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  qmctl::Context context{
      {}, std::cin, std::cout, std::cerr, qm_platform::isTerminal(0), {}, qm_platform::isTerminal(2)};
  return qmctl::runCommandLine(argc, argv, context);
}
