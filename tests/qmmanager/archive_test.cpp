#include "qmmanager/archive.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "qmmanager/archivenames.h"
#include "storage/FileInfo.h"
#include "tests/support/logcapture.h"
#include "tests/support/tempdir.h"
#include "tests/support/thrownby.h"

namespace {

namespace fs = std::filesystem;
using namespace qm_manager;
using namespace qm_test;
using testing::ElementsAre;
using testing::HasSubstr;

class ArchiveTest : public testing::Test {
 protected:
  ArchiveTest() { FileInfo::initCache(4); }
  ~ArchiveTest() override { FileInfo::closeCache(); }

  std::string root() const { return temp.path("archive"); }

  /// "SOURCE/FPS" of every unit, in order.
  static std::vector<std::string> unitsOf(const Archive& archive) {
    std::vector<std::string> names;
    for (const auto& [sSource, units] : archive.getTable().copy()) {
      for (const auto& [iFps, pUnit] : units) {
        names.push_back(sSource + "/" + std::to_string(iFps));
      }
    }
    return names;
  }

  TempDir temp;
};

TEST_F(ArchiveTest, OpensItsUnitsAndReportsWhatIsForeign) {
  {
    Archive archive(root(), ArchiveRoot::Creation::kWhenEmpty);
    for (const char* const szSource : {"gate", "Tür 1/..", "quarantine"}) {
      archive.makeUnit(szSource, 25);
    }
    const auto pUnit = archive.makeUnit("gate", 5);
    EXPECT_EQ(pUnit, archive.makeUnit("gate", 5));
    EXPECT_EQ(pUnit, archive.requireUnit("gate", 5));
  }
  for (const char* const szForeign : {"lost+found", "gate/05", "gate/-1", "gate/4294967296", "%67ate"}) {
    fs::create_directory(root() + "/" + szForeign);
  }
  for (const char* const szFile : {"note.txt", "gate/note.txt", "gate/7"}) {
    std::ofstream(root() + "/" + szFile) << "not ours";
  }
  fs::create_symlink("nowhere", root() + "/dangling");

  const LogCapture log;
  const Archive archive(root(), ArchiveRoot::Creation::kExisting);
  EXPECT_THAT(unitsOf(archive), ElementsAre("Tür 1/../25", "gate/5", "gate/25", "quarantine/25"));
  for (const char* const szForeign : {"lost+found", "gate/05", "gate/-1", "gate/4294967296", "%67ate",
                                      "note.txt", "gate/note.txt", "gate/7", "dangling"}) {
    EXPECT_TRUE(log.has(qm_err::kLogWarning,
                        root() + "/" + szForeign + " is no part of the archive and is passed over\n"))
        << szForeign;
  }
  EXPECT_THAT(thrownBy([&] { archive.requireUnit("gate", 6); }),
              "there is no recording of \"gate\" at the frame rate 6");
}

TEST_F(ArchiveTest, MakesNoUnitWhereSomethingIsInTheWay) {
  Archive archive(root(), ArchiveRoot::Creation::kWhenEmpty);
  temp.write("archive/hall", "a file");
  EXPECT_THAT(thrownBy([&] { archive.makeUnit("hall", 5); }), HasSubstr("is in the way of a directory"));
  EXPECT_THAT(thrownBy([&] { archive.makeUnit("", 5); }), "a source needs a name");
  EXPECT_THAT(thrownBy([&] { archive.makeUnit("gate", -1); }), "a frame rate can't be below 0");
  EXPECT_THAT(unitsOf(archive), ElementsAre());
}

}  // namespace
