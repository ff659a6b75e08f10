// An archive of 1,000 units with 1,000 slices each, and its Manager. The slices are names: their files are
// empty, but for the first one of each unit. The tree stands in the temporary directory and goes with this.
//
//   start, warm            the whole archive opened, logs and all, against `find` listing the same tree
//   start, cold            the same with the system's caches dropped before each; left out where that isn't
//                          allowed
//   search an hour         one request line for one source and one hour, up to the answer's list
//   search all             every slice as an item of a search's result, each one looked at, against SQLite
//                          giving the same rows out of a table in the order of its primary key
//   search all, answer     for the record: the same up to the answer's line

#include "qmmanager/manager.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmxml/qmxml.h"
#include "qmmanager/archive.h"
#include "qmmanager/archivenames.h"
#include "storage/FileInfo.h"
#include "storage/FileOutput.h"
#include "storage/Slice.h"
#include "storage/StorageQueryImpl.h"
#include "storage/StorageSearch.h"

namespace {

namespace fs = std::filesystem;
using qm_manager::Archive;
using qm_manager::ArchiveRoot;

constexpr int kUnits = 1000;
constexpr int kSlices = 1000;
constexpr std::int32_t kFps = 25;
constexpr std::uint64_t kBegin = 12943612800000000;
constexpr std::uint64_t kLength = 299'960'000;
constexpr std::uint64_t kPeriod = 301'000'000;  ///< a gap of a second: each slice is a row
constexpr std::uint64_t kSize = 52'428'800;

[[noreturn]] void giveUp(const char* szWhy) {
  std::fprintf(stderr, "%s\n", szWhy);
  std::exit(1);
}

std::string sourceOf(int iUnit) {
  return "entrance camera " + std::to_string(iUnit);
}

TimeSpan spanOf(int iSlice) {
  const std::uint64_t uStart = kBegin + static_cast<std::uint64_t>(iSlice) * kPeriod;
  return {JTime::fromMicroseconds(uStart), JTime::fromMicroseconds(uStart + kLength)};
}

void writeAsf(const std::string& sPath) {
  const auto pOutput =
      FileOutput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true), "asf", sPath);
  const auto block = qm_ci::StreamDataInfo::make("application/x-bench", "", 25, 1, 1U << 20);
  const auto stream = makeStreamInfo(qm_ci::StreamDataInfo(block));
  pOutput->open(&stream, nullptr, nullptr);
}

/// The archive's directory.
class Tree {
 public:
  Tree() {
    std::string sTemplate = (fs::temp_directory_path() / "qmbenchXXXXXX").string();
    if (mkdtemp(sTemplate.data()) == nullptr) {
      giveUp("mkdtemp");
    }
    m_sPath = sTemplate;
    ArchiveRoot(root(), ArchiveRoot::Creation::kWhenEmpty);
    writeAsf(m_sPath + "/first.asf");
    for (int iUnit = 0; iUnit < kUnits; ++iUnit) {
      makeUnit(qm_manager::unitDirectory(root(), sourceOf(iUnit), kFps));
    }
  }
  ~Tree() { fs::remove_all(m_sPath); }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  std::string root() const { return m_sPath + "/archive"; }
  std::string table() const { return m_sPath + "/table"; }

 private:
  void makeUnit(const std::string& sUnit) const {
    fs::create_directories(sUnit);
    for (int iSlice = 0; iSlice < kSlices; ++iSlice) {
      const std::string sPath = sUnit + "/" + Slice::computeFileName(spanOf(iSlice), kSize, ".asf");
      if (iSlice == 0) {
        fs::create_hard_link(m_sPath + "/first.asf", sPath);
        continue;
      }
      const int iFile = ::open(sPath.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
      if (iFile < 0) {
        giveUp("can't make the tree");
      }
      ::close(iFile);
    }
  }

  std::string m_sPath;
};

// Start.

double openWhole(const std::string& sRoot) {
  std::unique_ptr<Archive> pArchive;
  const double dSeconds = qm_bench::seconds(
      [&] { pArchive = std::make_unique<Archive>(sRoot, ArchiveRoot::Creation::kExisting); });
  if (pArchive->requireUnit(sourceOf(kUnits - 1), kFps)->getSliceCount() != kSlices) {
    giveUp("slices are missing");
  }
  return dSeconds;
}

double findWhole(const std::string& sRoot) {
  return qm_bench::seconds([&] {
    if (std::system(("find '" + sRoot + "' > /dev/null").c_str()) != 0) {
      giveUp("find");
    }
  });
}

bool dropCaches() {
  ::sync();
  const int iFile = ::open("/proc/sys/vm/drop_caches", O_WRONLY | O_CLOEXEC);
  const bool bDropped = iFile >= 0 && ::write(iFile, "3", 1) == 1;
  if (iFile >= 0) {
    ::close(iFile);
  }
  return bDropped;
}

void benchStart(const std::string& sRoot) {
  openWhole(sRoot);  // makes the logs
  qm_bench::compare(
      {"start, 1,000 x 1,000 slices, warm", "find", 0.5, 5}, [&] { return openWhole(sRoot); },
      [&] { return findWhole(sRoot); });
  if (!dropCaches()) {
    std::printf("start, cold: the system's caches can't be dropped here\n");
    return;
  }
  const auto cold = [&sRoot](double (*work)(const std::string&)) {
    return [&sRoot, work] {
      dropCaches();
      return work(sRoot);
    };
  };
  qm_bench::compare({"start, 1,000 x 1,000 slices, cold", "find", 0.5, 3}, cold(openWhole), cold(findWhole));
}

// Searches.

std::string searchLine(const StorageQueryImpl& query) {
  JParams parameters;
  JRPCSerialisation(&parameters).serialise("StorageQuery", query);
  std::string sList;
  parameters.toText(sList);
  return "rpc_dbQuery(" + sList + ")";
}

/// The number of items in an answer.
std::int32_t itemsOf(const JParams& answer) {
  std::int32_t iItems = 0;
  answer.get("StorageSearchResultSet_StorageSearchResultSet__size", iItems, true);
  return iItems;
}

void benchHour(qm_manager::Manager& manager) {
  constexpr int kRequests = 2000;
  std::vector<double> times;
  for (int i = 0; i < kRequests; ++i) {
    StorageQueryImpl query;
    query.setSourceName(sourceOf(i * 7 % kUnits));
    const JTime start = spanOf(i * 13 % (kSlices - 12)).startDate;
    query.setDates(start, JTime(start).add(3'600'000'000));
    const std::string sLine = searchLine(query);
    std::unique_ptr<JParams> pAnswer;
    times.push_back(qm_bench::seconds([&] { pAnswer = manager.parseRequest(sLine, 1); }));
    if (itemsOf(*pAnswer) != 12) {
      giveUp("an hour has twelve slices");
    }
  }
  std::sort(times.begin(), times.end());
  qm_bench::report("search an hour, median", times[kRequests / 2] * 1000, "ms", 2);
  qm_bench::report("search an hour, slowest of 100", times[kRequests - kRequests / 100] * 1000, "ms");
}

double searchAll(const SourceTable& table) {
  std::uint64_t uSum = 0;
  std::uint32_t uItems = 0;
  const double dSeconds = qm_bench::seconds([&] {
    const auto pResults = StorageQueryImpl().execute(table);
    uItems = pResults->size();
    for (std::uint32_t i = 0; i < uItems; ++i) {
      const StorageSearchItem& item = *pResults->at(i);
      uSum +=
          item.getStart().getMicroseconds() + item.getEnd().getMicroseconds() + item.getSourceName().size();
    }
  });
  qm_bench::keep(uSum);
  if (uItems != static_cast<std::uint32_t>(kUnits) * kSlices) {
    giveUp("rows are missing");
  }
  return dSeconds;
}

/// A table of the same rows, which stands open.
class Table {
 public:
  explicit Table(const std::string& sPath) {
    if (sqlite3_open(sPath.c_str(), &m_pBase) != SQLITE_OK) {
      giveUp("sqlite");
    }
    run("create table slices(source text, fps integer, start integer, finish integer, type text, "
        "primary key(source, fps, start)) without rowid; begin");
    sqlite3_stmt* const pInsert = prepare("insert into slices values(?, ?, ?, ?, 'application/x-bench')");
    for (int iUnit = 0; iUnit < kUnits; ++iUnit) {
      const std::string sSource = sourceOf(iUnit);
      for (int iSlice = 0; iSlice < kSlices; ++iSlice) {
        const TimeSpan span = spanOf(iSlice);
        sqlite3_bind_text(pInsert, 1, sSource.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_int(pInsert, 2, kFps);
        sqlite3_bind_int64(pInsert, 3, static_cast<sqlite3_int64>(span.startDate.getMicroseconds()));
        sqlite3_bind_int64(pInsert, 4, static_cast<sqlite3_int64>(span.endDate.getMicroseconds()));
        sqlite3_step(pInsert);
        sqlite3_reset(pInsert);
      }
    }
    sqlite3_finalize(pInsert);
    run("commit");
    m_pQuery = prepare(
        "select source, fps, start, finish, type from slices where finish >= ? and start <= ? "
        "order by source, fps, start");
  }
  ~Table() {
    sqlite3_finalize(m_pQuery);
    sqlite3_close(m_pBase);
  }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  double readAll() {
    std::uint64_t uSum = 0;
    int iRows = 0;
    const double dSeconds = qm_bench::seconds([&] {
      sqlite3_bind_int64(m_pQuery, 1, 0);
      sqlite3_bind_int64(m_pQuery, 2, INT64_MAX);
      for (; sqlite3_step(m_pQuery) == SQLITE_ROW; ++iRows) {
        const auto* const szSource = reinterpret_cast<const char*>(sqlite3_column_text(m_pQuery, 0));
        const auto* const szType = reinterpret_cast<const char*>(sqlite3_column_text(m_pQuery, 4));
        uSum += static_cast<std::uint64_t>(sqlite3_column_int(m_pQuery, 1)) +
                static_cast<std::uint64_t>(sqlite3_column_int64(m_pQuery, 2)) +
                static_cast<std::uint64_t>(sqlite3_column_int64(m_pQuery, 3)) +
                static_cast<std::uint64_t>(szSource[0] + szType[0]);
      }
      sqlite3_reset(m_pQuery);
    });
    qm_bench::keep(uSum);
    if (iRows != kUnits * kSlices) {
      giveUp("rows are missing");
    }
    return dSeconds;
  }

 private:
  void run(const char* szStatements) {
    if (sqlite3_exec(m_pBase, szStatements, nullptr, nullptr, nullptr) != SQLITE_OK) {
      giveUp("sqlite");
    }
  }

  sqlite3_stmt* prepare(const char* szStatement) {
    sqlite3_stmt* pStatement = nullptr;
    if (sqlite3_prepare_v2(m_pBase, szStatement, -1, &pStatement, nullptr) != SQLITE_OK) {
      giveUp("sqlite");
    }
    return pStatement;
  }

  sqlite3* m_pBase = nullptr;
  sqlite3_stmt* m_pQuery = nullptr;
};

void benchAll(const Archive& archive, qm_manager::Manager& manager, const std::string& sTable) {
  Table table(sTable);
  const auto ours = [&] { return searchAll(archive.getTable()); };
  const auto peer = [&] { return table.readAll(); };
  qm_bench::compare({"search all, a million slices", "SQLite", 1.0}, ours, peer);
  const std::string sLine = searchLine(StorageQueryImpl());
  const auto answer = [&] {
    return qm_bench::seconds([&] {
      std::string sAnswer;
      manager.parseRequest(sLine, 1)->toText(sAnswer);
      qm_bench::keep(sAnswer);
    });
  };
  qm_bench::compare({"search all, answer", "SQLite", 0.0, 3}, answer, peer);
}

}  // namespace

int main() {
  qm_err::setLogHook(nullptr);
  const QMXmlUse xml;
  FileInfo::initCache(16);
  try {
    const Tree tree;
    benchStart(tree.root());
    Archive archive(tree.root(), ArchiveRoot::Creation::kExisting);
    qm_manager::Manager manager(archive, {});
    benchHour(manager);
    benchAll(archive, manager, tree.table());
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    giveUp(error->getMessage().c_str());
  }
  FileInfo::closeCache();
}
