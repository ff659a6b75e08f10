#include "coreapi/qmutils/time/timezone.h"

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "coreapi/platform/filecontents.h"
#include "coreapi/platform/process.h"
#include "coreapi/platform/systemerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/time/tzifzone.h"
#include "coreapi/qmutils/time/zonepack.h"

namespace qm_utils {

namespace {

constexpr const char* kPackName = "zoneinfo.pak";
constexpr const char* kUtcName = "Etc/UTC";
constexpr const char* kNamelessZone = "GMT";

/// Larger files aren't read. A pack of every zone there is takes about a megabyte.
constexpr std::size_t kLargestPack = std::size_t{16} << 20;

using Rules = std::shared_ptr<const ZoneRules>;
using Pack = std::shared_ptr<const std::vector<std::uint8_t>>;

/// What is in force, under the mutex. All three stay readable without it, since what they point to never
/// changes.
struct Setting {
  std::string sName;  ///< empty for the platform's zone
  Rules pRules = platformZoneRules();
  Pack pPack;  ///< the pack that was set last, or null
};

struct Shared {
  JMutex mutex;
  Setting setting;
};

/// Never destroyed, since threads print times until the very end.
Shared& shared() {
  static Shared& instance = *new Shared;
  return instance;
}

Setting currentSetting() {
  const JAutoLock lock(shared().mutex);
  return shared().setting;
}

void putInForce(Setting setting) {
  const JAutoLock lock(shared().mutex);
  std::swap(shared().setting, setting);
}

/// The pack beside the program, or null and a warning.
Pack readProgramPack() {
  const std::string sPath = qm_platform::runningModuleDirectory() + "/" + kPackName;
  std::vector<std::uint8_t> bytes;
  const int error = qm_platform::readFileContents(sPath, kLargestPack, bytes);
  if (error != 0) {
    qm_err::log(qm_err::kLogWarning, "Time zone data '%s' can't be read (%s). Local time stays as it is.",
                sPath.c_str(), qm_platform::systemErrorText(static_cast<unsigned>(error)).c_str());
    return nullptr;
  }
  return std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
}

/// The rules of the zone of a pack, or null.
Rules findRules(const std::vector<std::uint8_t>& pack, std::string_view sName) {
  const auto image = buildTzifImage(pack, sName);
  return image ? TzifZone::parse(*image) : nullptr;
}

/// The rules of the zone of a pack, or of UTC. Returns whether the zone is there.
bool findRulesOrUtc(const std::vector<std::uint8_t>& pack, const std::string& sName, Rules& pRules) {
  pRules = findRules(pack, sName);
  if (pRules) {
    return true;
  }
  qm_err::log(qm_err::kLogError,
              "Local time zone information not found for '%s'. Will use UTC as local time.", sName.c_str());
  pRules = findRules(pack, kUtcName);
  if (!pRules) {
    pRules = TzifZone::utc("UTC");
  }
  return false;
}

/// The name under which a pack has the zone that a person means.
std::string packName(const std::string& sName) {
  return sName.empty() ? kNamelessZone : withSignSwapped(sName);
}

bool setFromPack(const std::string& sName, Pack pPack) {
  Setting setting;
  setting.pPack = std::move(pPack);
  const bool bFound = findRulesOrUtc(*setting.pPack, sName, setting.pRules);
  setting.sName = bFound ? sName : kUtcName;
  putInForce(std::move(setting));
  if (bFound) {
    qm_err::log(qm_err::kLogInfo, "Local time set to '%s'.", sName.c_str());
  }
  return bFound;
}

}  // namespace

bool setLocalTimeZone(const std::string& sName) {
  const std::string sPackName = packName(sName);
  if (sPackName == getLocalTimeZoneName()) {
    return true;
  }
  Pack pPack = readProgramPack();
  return pPack && setFromPack(sPackName, std::move(pPack));
}

bool setLocalTimeZone(const std::string& sName, std::span<const std::uint8_t> pack) {
  const std::string sPackName = packName(sName);
  if (sPackName == getLocalTimeZoneName()) {
    return true;
  }
  return setFromPack(sPackName, std::make_shared<const std::vector<std::uint8_t>>(pack.begin(), pack.end()));
}

void resetLocalTimeZone() {
  putInForce({});
}

std::string getLocalTimeZoneName() {
  return currentSetting().sName;
}

std::shared_ptr<const ZoneRules> localZoneRules() {
  const JAutoLock lock(shared().mutex);
  return shared().setting.pRules;
}

std::shared_ptr<const ZoneRules> zoneRulesByName(const std::string& sName) {
  const std::string sPackName = packName(sName);
  const Setting setting = currentSetting();
  if (sPackName == setting.sName) {
    return setting.pRules;
  }
  const Pack pPack = setting.pPack ? setting.pPack : readProgramPack();
  Rules pRules = platformZoneRules();
  if (pPack) {
    findRulesOrUtc(*pPack, sPackName, pRules);
  }
  return pRules;
}

std::string withSignSwapped(std::string sName) {
  for (const std::string_view sStart : {"Etc/GMT", "GMT"}) {
    if (sName.starts_with(sStart) && sName.size() > sStart.size()) {
      char& cSign = sName[sStart.size()];
      cSign = cSign == '+' ? '-' : cSign == '-' ? '+' : cSign;
      break;
    }
  }
  return sName;
}

}  // namespace qm_utils
