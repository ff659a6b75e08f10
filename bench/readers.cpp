// Media files that are read. Files stand in the temporary directory and go with this.
//
//   open and seek, N entries    an ASF file with a mapped index of N entries opened, and one frame found by
//   its
//                               time, against SQLite opening a table of the same entries and seeking once
//   seek by time, SPACING       in a million entries in memory, against LMDB's range look-up and against
//                               std::lower_bound over the same table
//   rebuild                     the index of an unfinished file of 64 KiB frames, against reading the file in
//                               order, and against ffmpeg passing on the packets of a file of such packets;
//                               the system's cache of the file is dropped before each
//
// A seek's key changes each time, at random.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <lmdb.h>
#include <random>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmxml/qmxml.h"
#include "storage/ASFIO/ASFFileInfoIn.h"
#include "storage/ASFIO/asfformat.h"
#include "storage/FileInput.h"
#include "storage/FileOutput.h"

namespace {

constexpr std::uint64_t kBegin = 12943612800000000;
constexpr std::uint32_t kMany = 1'000'000;
constexpr std::size_t kFrameSize = 65536;
constexpr std::uint32_t kFrames = 4096;

[[noreturn]] void giveUp(const char* szWhy) {
  std::fprintf(stderr, "%s\n", szWhy);
  std::exit(1);
}

class Folder {
 public:
  Folder() {
    std::string sTemplate = (std::filesystem::temp_directory_path() / "qmbenchXXXXXX").string();
    if (mkdtemp(sTemplate.data()) == nullptr) {
      giveUp("mkdtemp");
    }
    m_path = sTemplate;
  }
  ~Folder() { std::filesystem::remove_all(m_path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string file(const std::string& sName) const { return m_path / sName; }

 private:
  std::filesystem::path m_path;
};

void writeAsf(const std::string& sPath, std::uint32_t uFrames, std::size_t size) {
  const auto pOutput =
      FileOutput::create(std::make_unique<JFileSocket>(sPath, JFileSocket::kWrite, true), "asf", sPath);
  const auto block = qm_ci::StreamDataInfo::make("application/x-bench", "", 25, 1, 1U << 20);
  const auto stream = makeStreamInfo(qm_ci::StreamDataInfo(block));
  pOutput->open(&stream, nullptr, nullptr);
  const std::string sPayload(size, 'p');
  qm_ci::Bitstream frame;
  frame.setMaxSize(0, qm_ci::QMCI_FMT_PACKET, 1);
  frame.addExternalPacket(sPayload.data(), static_cast<std::uint32_t>(size), 0);
  frame.setAccessFlags(3);
  for (std::uint32_t i = 0; i < uFrames; ++i) {
    frame.setTimestamp(kBegin + i * std::uint64_t{40'000});
    frame.setFrameNumber(i);
    pOutput->writeBitstream(1, frame, 0, 0);
  }
}

std::vector<std::uint64_t> timesOf(bool bGaps) {
  std::mt19937 random(5);
  std::vector<std::uint64_t> times = {kBegin};
  while (times.size() < kMany) {
    const bool bGap = bGaps && random() % 20'000 == 0;
    times.push_back(times.back() + (bGap ? std::uint64_t{3'600'000'000} * (1 + random() % 5) : 40'000));
  }
  return times;
}

/// Reads random times of a table by some look-up; seconds.
template <typename Lookup>
double lookUp(const std::vector<std::uint64_t>& times, Lookup find) {
  std::mt19937 random(9);
  std::uint64_t uSum = 0;
  const double dSeconds = qm_bench::seconds([&] {
    for (int i = 0; i < 200'000; ++i) {
      uSum += find(times[random() % times.size()] + 7);
    }
  });
  qm_bench::keep(uSum);
  return dSeconds;
}

void fillTable(const std::string& sPath, std::uint32_t uCount) {
  sqlite3* pBase = nullptr;
  sqlite3_stmt* pInsert = nullptr;
  if (sqlite3_open(sPath.c_str(), &pBase) != SQLITE_OK ||
      sqlite3_exec(pBase,
                   "create table entries(time integer primary key, position integer, flags integer); begin",
                   nullptr, nullptr, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(pBase, "insert into entries values(?, ?, 3)", -1, &pInsert, nullptr) != SQLITE_OK) {
    giveUp("sqlite");
  }
  for (std::uint32_t i = 0; i < uCount; ++i) {
    sqlite3_bind_int64(pInsert, 1, static_cast<sqlite3_int64>(kBegin + i * std::uint64_t{40'000}));
    sqlite3_bind_int64(pInsert, 2, i);
    sqlite3_step(pInsert);
    sqlite3_reset(pInsert);
  }
  sqlite3_finalize(pInsert);
  sqlite3_exec(pBase, "commit", nullptr, nullptr, nullptr);
  sqlite3_close(pBase);
}

double openTable(const std::string& sPath, std::uint64_t ullTime) {
  return qm_bench::seconds([&] {
    sqlite3* pBase = nullptr;
    sqlite3_stmt* pQuery = nullptr;
    sqlite3_open_v2(sPath.c_str(), &pBase, SQLITE_OPEN_READONLY, nullptr);
    if (sqlite3_prepare_v2(pBase, "select position from entries where time <= ? order by time desc limit 1",
                           -1, &pQuery, nullptr) != SQLITE_OK) {
      giveUp("sqlite");
    }
    sqlite3_bind_int64(pQuery, 1, static_cast<sqlite3_int64>(ullTime));
    if (sqlite3_step(pQuery) != SQLITE_ROW) {
      giveUp("no row");
    }
    sqlite3_finalize(pQuery);
    sqlite3_close(pBase);
  });
}

double openFile(const std::string& sPath, std::uint64_t ullTime) {
  return qm_bench::seconds([&] {
    JFileSocket socket(sPath, JFileSocket::kRead, true);
    const FileInfo::Ptr pInfo = FileInfo::create(socket, sPath, true);
    const auto pInput = pInfo->createInput();
    if (pInput->seekTime(1, nullptr, JTime::fromMicroseconds(ullTime), nullptr, true) != FileInput::kFrame) {
      giveUp("seekTime");
    }
  });
}

void compareOpening(const Folder& folder) {
  const std::string sFile = folder.file("many.asf");
  const std::string sFew = folder.file("few.asf");
  const std::string sTable = folder.file("many.sqlite");
  writeAsf(sFile, kMany, 16);
  writeAsf(sFew, 1000, 16);
  fillTable(sTable, kMany);
  std::mt19937 random(3);
  // A hundred at random times.
  const auto times = [&](const std::string& sPath, std::uint32_t uCount,
                         double (*open)(const std::string&, std::uint64_t)) {
    double dSeconds = 0.0;
    for (int i = 0; i < 100; ++i) {
      dSeconds += open(sPath, kBegin + random() % uCount * std::uint64_t{40'000});
    }
    return dSeconds;
  };
  const auto openMany = [&] { return times(sFile, kMany, openFile); };
  qm_bench::compare({"open and seek, a million entries", "SQLite", 5.0}, openMany,
                    [&] { return times(sTable, kMany, openTable); });
  qm_bench::compare({"open and seek, a million entries", "a thousand entries"}, openMany,
                    [&] { return times(sFew, 1000, openFile); });
}

/// The same table in LMDB, big-endian times as keys.
class Lmdb {
 public:
  Lmdb(const std::string& sPath, const std::vector<std::uint64_t>& times) {
    MDB_txn* pWrite = nullptr;
    if (mdb_env_create(&m_pEnv) != 0 || mdb_env_set_mapsize(m_pEnv, std::size_t{1} << 30) != 0 ||
        mdb_env_open(m_pEnv, sPath.c_str(), MDB_NOSUBDIR | MDB_NOSYNC, 0600) != 0 ||
        mdb_txn_begin(m_pEnv, nullptr, 0, &pWrite) != 0 ||
        mdb_dbi_open(pWrite, nullptr, MDB_INTEGERKEY, &m_uBase) != 0) {
      giveUp("lmdb");
    }
    for (std::size_t i = 0; i < times.size(); ++i) {
      std::uint64_t uTime = times[i];
      std::uint64_t entry[3] = {i, i, 3};
      MDB_val key{sizeof uTime, &uTime};
      MDB_val value{sizeof entry, entry};
      mdb_put(pWrite, m_uBase, &key, &value, MDB_APPEND);
    }
    mdb_txn_commit(pWrite);
    mdb_txn_begin(m_pEnv, nullptr, MDB_RDONLY, &m_pRead);
    mdb_cursor_open(m_pRead, m_uBase, &m_pCursor);
  }
  ~Lmdb() {
    mdb_cursor_close(m_pCursor);
    mdb_txn_abort(m_pRead);
    mdb_env_close(m_pEnv);
  }
  Lmdb(const Lmdb&) = delete;
  Lmdb& operator=(const Lmdb&) = delete;

  std::uint64_t find(std::uint64_t uTime) {
    MDB_val key{sizeof uTime, &uTime};
    MDB_val value{};
    if (mdb_cursor_get(m_pCursor, &key, &value, MDB_SET_RANGE) != 0) {
      return 0;
    }
    mdb_cursor_get(m_pCursor, &key, &value, MDB_PREV);
    return *static_cast<const std::uint64_t*>(value.mv_data);
  }

 private:
  MDB_env* m_pEnv = nullptr;
  MDB_txn* m_pRead = nullptr;
  MDB_cursor* m_pCursor = nullptr;
  MDB_dbi m_uBase = 0;
};

void compareSeeking(const Folder& folder, bool bGaps) {
  const std::vector<std::uint64_t> times = timesOf(bGaps);
  FileStreamInfo stream;
  stream.setIndexType(FILEINDEX_CI);
  std::vector<IndexEntry> table;
  for (std::uint32_t i = 0; i < times.size(); ++i) {
    table.push_back({i, times[i], i, 3, 0});
    stream.append(table.back());
  }
  Lmdb lmdb(folder.file(bGaps ? "gaps.mdb" : "even.mdb"), times);
  const std::string sName = std::string("seek by time, ") + (bGaps ? "gaps" : "even");
  const auto ours = [&] {
    return lookUp(times, [&](std::uint64_t uTime) {
      std::uint32_t uNumber = 0;
      return stream.getPosByTime(JTime::fromMicroseconds(uTime), uNumber, false);
    });
  };
  qm_bench::compare({sName, "LMDB", 2.0}, ours,
                    [&] { return lookUp(times, [&](std::uint64_t uTime) { return lmdb.find(uTime); }); });
  qm_bench::compare({sName, "std::lower_bound", 1.0}, ours, [&] {
    return lookUp(times, [&](std::uint64_t uTime) {
      const auto behind =
          std::lower_bound(table.begin(), table.end(), uTime + 1,
                           [](const IndexEntry& e, std::uint64_t t) { return e.ullTime < t; });
      return (behind - 1)->ullPosition;
    });
  });
}

void dropCache(const std::string& sPath) {
  const int iFile = open(sPath.c_str(), O_RDONLY);
  fdatasync(iFile);
  posix_fadvise(iFile, 0, 0, POSIX_FADV_DONTNEED);
  close(iFile);
}

double readInOrder(const std::string& sPath) {
  dropCache(sPath);
  std::vector<char> buffer(1 << 20);
  return qm_bench::seconds([&] {
    const int iFile = open(sPath.c_str(), O_RDONLY);
    while (read(iFile, buffer.data(), buffer.size()) > 0) {
    }
    close(iFile);
  });
}

double rebuild(const std::string& sPath) {
  dropCache(sPath);
  return qm_bench::seconds([&] {
    JFileSocket socket(sPath, JFileSocket::kRead, true);
    const FileInfo::Ptr pInfo = FileInfo::create(socket, sPath, false);
    pInfo->rebuildIndex(false, nullptr, JTime::lastQueryTime());
    if (pInfo->getStream(1)->getCount() != kFrames - 1) {
      giveUp("frames are missing");
    }
  });
}

void compareRebuild(const Folder& folder) {
  const std::string sFile = folder.file("whole.asf");
  writeAsf(sFile, kFrames, kFrameSize);
  // As the writer leaves it when it dies: without the index, with a data object of no size.
  std::uint64_t ullStart = 0;
  {
    JFileSocket socket(sFile, JFileSocket::kReadWrite, true);
    ullStart = ASFFileInfoIn(socket, sFile, false).getDataStart();
    socket.setEndOfFile(ullStart + kFrames * std::uint64_t{kFrameSize + asf_layout::data_unit::kHeadSize});
    const std::uint64_t ullNothing = 0;
    socket.seek(static_cast<std::int64_t>(ullStart - sizeof ullNothing), JFileSocket::kStart);
    socket.write(&ullNothing, sizeof ullNothing);
  }
  qm_bench::compare(
      {"rebuild, 64 KiB frames", "reading in order", 0.9, 5}, [&] { return rebuild(sFile); },
      [&] { return readInOrder(sFile); });
  // Packets of about the same size: raw pictures of 208 x 210 pixels, 1.5 bytes each.
  const std::string sVideo = folder.file("packets.mkv");
  const std::string sMake = "ffmpeg -v error -f lavfi -i testsrc=size=208x210:rate=25 -frames:v " +
                            std::to_string(kFrames) + " -c:v rawvideo -pix_fmt yuv420p '" + sVideo + "'";
  if (std::system(sMake.c_str()) != 0) {
    giveUp("ffmpeg");
  }
  const std::string sPass = "ffmpeg -v error -i '" + sVideo + "' -c copy -f null - 2>/dev/null";
  qm_bench::compare(
      {"rebuild, packets a second", "ffmpeg -c copy", 2.0, 5}, [&] { return rebuild(sFile); },
      [&] {
        dropCache(sVideo);
        return qm_bench::seconds([&] {
          if (std::system(sPass.c_str()) != 0) {
            giveUp("ffmpeg");
          }
        });
      });
}

}  // namespace

int main() {
  qm_err::setLogHook(nullptr);
  try {
    const QMXmlUse xml;  // as every program holds one that reads files
    const Folder folder;
    compareOpening(folder);
    compareSeeking(folder, false);
    compareSeeking(folder, true);
    compareRebuild(folder);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    std::fprintf(stderr, "%s\n", error->getMessage().c_str());
    return 1;
  }
  return 0;
}
