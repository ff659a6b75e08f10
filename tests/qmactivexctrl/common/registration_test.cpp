#include <gtest/gtest.h>

#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "qmactivexctrl/common/qmregistration.h"

namespace {

constexpr auto kRoot = qm_utils::RegistryRoot::kLocalMachine;
constexpr const char* kProgId = "SOFTWARE\\Classes\\QMStorageAccessController.QMStorageAccessCtrl";

std::string valueOf(const std::string& sKey, const std::string& sName = {}) {
  JSystemRegistryKey key;
  std::string sValue = "none";
  if (!key.open(kRoot, sKey, qm_utils::kRegistryRead, true)) {
    return "no key";
  }
  key.getString(sName, sValue);
  return sValue;
}

TEST(Registration, EntersItsKeysAndTakesOnlyThemAway) {
  const std::string sProgId = kProgId;
  const std::string sClass = "SOFTWARE\\Classes\\CLSID\\{F6896C2F-489A-46B0-BD71-7C1844E5AEC1}";
  JSystemRegistryKey foreign;
  foreign.create(kRoot, sClass + "\\Stale");
  foreign.create(kRoot, sProgId + "\\Foreign");

  qm_registration::registerControl("/lib/libqm.so");
  EXPECT_EQ(valueOf(sProgId), "QMStorageAccessCtrl Class");
  EXPECT_EQ(valueOf(sProgId + "\\CurVer"), "QMStorageAccessController.QMStorageAccessCtrl.1");
  EXPECT_EQ(valueOf(sProgId + ".1\\CLSID"), "{F6896C2F-489A-46B0-BD71-7C1844E5AEC1}");
  EXPECT_EQ(valueOf(sClass + "\\InprocServer32"), "/lib/libqm.so");
  EXPECT_EQ(valueOf(sClass + "\\InprocServer32", "ThreadingModel"), "Apartment");
  EXPECT_EQ(valueOf(sClass + "\\ToolboxBitmap32"), "/lib/libqm.so, 103");
  EXPECT_EQ(valueOf(sClass + "\\Insertable"), "none");
  EXPECT_EQ(valueOf(sClass + "\\MiscStatus\\1"), "132497");
  EXPECT_EQ(valueOf(sClass + "\\Stale"), "no key") << "the class's key is made anew";

  qm_registration::unregisterControl();
  EXPECT_EQ(valueOf(sClass), "no key");
  EXPECT_EQ(valueOf(sProgId + ".1"), "no key");
  EXPECT_EQ(valueOf(sProgId + "\\CLSID"), "no key");
  EXPECT_EQ(valueOf(sProgId + "\\Foreign"), "none") << "what others have put there stays";
  EXPECT_EQ(valueOf("SOFTWARE\\Classes\\CLSID"), "none");
  qm_registration::unregisterControl();
}

}  // namespace
