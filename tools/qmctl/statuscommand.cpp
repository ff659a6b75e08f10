#include <ostream>

#include "qmactivexctrl/qmstorageaccesscontroller/ServerGeneration.h"
#include "tools/qmctl/commandline.h"
#include "tools/qmctl/output.h"

namespace qmctl {

namespace {

void printStatus(Context& context) {
  const Settings& settings = context.settings;
  Session session(settings);
  std::int32_t iMajor = 0;
  std::int32_t iMinor = 0;
  session.getControl().getServerVersion(iMajor, iMinor);
  const std::string sVersion = std::to_string(iMajor) + "." + std::to_string(iMinor);
  const std::string sGeneration = getGenerationName(selectGeneration(iMajor, iMinor));
  if (settings.bJson) {
    writeJson(context.out, {{"server", settings.sServer},
                            {"port", settings.iPort},
                            {"link", "connected"},
                            {"version", sVersion},
                            {"generation", sGeneration}});
    return;
  }
  Table table(context.out, {"SERVER", "LINK", "VERSION", "GENERATION"});
  table.add({settings.sServer + ":" + std::to_string(settings.iPort), "connected", sVersion, sGeneration});
  table.finish();
}

}  // namespace

void addStatusCommand(CLI::App& app, Context& context) {
  addCommand(app, "status", "Connects, and tells the Manager's version and its generation",
             "--server archive.example status")
      .callback([&context] { context.todo = [&context] { printStatus(context); }; });
}

}  // namespace qmctl
