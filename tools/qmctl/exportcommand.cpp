#include "tools/qmctl/commandline.h"
namespace qmctl { void addExportCommand(CLI::App&, Context&) {} }
