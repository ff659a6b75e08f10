#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "storage/FileInfo.h"
#include "storage/FileInput.h"
#include "storage/JCache.h"
#include "storage/indexsearch.h"
#include "tests/storage/readersupport.h"

namespace {

using namespace qm_test;

class Counted : public JCacheRecord {
 public:
  Counted(const std::string& sKey, int& iLiving) : JCacheRecord(sKey), m_iLiving(iLiving) { ++m_iLiving; }
  ~Counted() override { --m_iLiving; }

 private:
  int& m_iLiving;
};

TEST(Cache, KeepsTheRecordsThatWereReleasedLast) {
  int iLiving = 0;
  JCache cache(2);
  std::vector<JCacheRecord*> records;
  for (const char* const szKey : {"a", "b", "c"}) {
    records.push_back(new Counted(szKey, iLiving));
    cache.add(records.back());
  }
  for (JCacheRecord* const pRecord : records) {
    pRecord->release();
  }
  EXPECT_EQ(iLiving, 2);
  EXPECT_FALSE(cache.contains("a"));
  EXPECT_EQ(cache.acquire("a"), nullptr);

  // Used again, "b" goes to the end of the list: "c" is the oldest then.
  cache.acquire("b")->release();
  auto* const pMore = new Counted("d", iLiving);
  cache.add(pMore);
  pMore->release();
  EXPECT_TRUE(cache.contains("b"));
  EXPECT_FALSE(cache.contains("c"));
}

TEST(Cache, RemovesRecordsInUseAtTheirLastRelease) {
  int iLiving = 0;
  JCache cache(5);
  auto* const pRecord = new Counted("a", iLiving);
  cache.add(pRecord);
  pRecord->addRef();
  cache.remove(pRecord);
  pRecord->release();
  EXPECT_EQ(iLiving, 1);
  pRecord->release();
  EXPECT_EQ(iLiving, 0);
  EXPECT_FALSE(cache.contains("a"));

  auto* const pFirst = new Counted("b", iLiving);
  auto* const pSecond = new Counted("b", iLiving);
  cache.add(pFirst);
  EXPECT_EQ(cache.addOrAcquire(pSecond), pFirst);
  cache.add(pSecond);
  pFirst->release();
  pFirst->release();
  EXPECT_EQ(iLiving, 1);
  EXPECT_EQ(cache.acquire("b"), pSecond);
  pSecond->release();
  pSecond->release();
  cache.remove(pSecond);
  EXPECT_EQ(iLiving, 0);
}

TEST(FileInfoCache, ManyThreadsShareOneDescription) {
  EXPECT_EQ(thrownBy([] { FileInfo::isCached("x"); }), "FileInfo cache not initialized");
  const TempDir dir;
  const std::string sPath = dir.path("a.asf");
  writeAsf(sPath, 20);
  FileInfo::initCache(1);
  EXPECT_EQ(thrownBy([] { FileInfo::initCache(1); }), "File info cache already initialized");
  std::vector<std::thread> threads;
  std::atomic<std::size_t> uRead = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int iRound = 0; iRound < 20; ++iRound) {
        const FileInfo::Ptr pInfo = FileInfo::getCached(sPath);
        const auto pInput = pInfo->createInput();
        pInput->setLoop(false);
        uRead += readAll(*pInput).size();
        if (iRound % 5 == 4) {
          FileInfo::removeCached(sPath, true);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(uRead, 4U * 20 * 20);
  FileInfo::closeCache();
}

TEST(Description, LivesAsLongAsItsReaders) {
  const TempDir dir;
  writeAsf(dir.path("a.asf"), 3);
  JFileSocket socket(dir.path("a.asf"), JFileSocket::kRead, true);
  FileInfo::Ptr pInfo = FileInfo::create(socket, dir.path("a.asf"), false);
  const auto pInput = pInfo->createInput();
  pInput->setLoop(false);
  pInfo.reset();
  EXPECT_EQ(readAll(*pInput).size(), 3U);
}

/// Says when it is looked at by somebody who has ended its use, when another may have deleted it.
class Watched : public FileInfo {
 public:
  using FileInfo::FileInfo;
  JCache* getCache() const override {
    EXPECT_GT(m_iUseCount, 0);
    return FileInfo::getCache();
  }
};

TEST(Description, IsntLookedAtAfterItsUseHasEnded) {
  Watched fileInfo("a");
  fileInfo.beginUse();
  fileInfo.endUse();
}

// Searching.

std::vector<std::uint8_t> indexOf(const std::vector<std::uint64_t>& times) {
  std::vector<std::uint8_t> entries(times.size() * index_layout::kNtpSize);
  for (std::size_t i = 0; i < times.size(); ++i) {
    writeIndexEntry({i, times[i], 0, 0, 0}, FILEINDEX_NTP, entries.data() + i * index_layout::kNtpSize);
  }
  return entries;
}

struct Spacing {
  const char* name;
  std::uint64_t (*step)(std::mt19937& random, std::uint64_t i);
};

TEST(IndexSearch, FindsTheLastEntryAtOrBeforeATime) {
  const Spacing rows[] = {
      {"Even", [](std::mt19937&, std::uint64_t) { return std::uint64_t{40'000}; }},
      {"Jitter", [](std::mt19937& r, std::uint64_t) { return std::uint64_t{r() % 80'000}; }},
      {"Equal", [](std::mt19937& r, std::uint64_t) { return std::uint64_t{r() % 3 == 0}; }},
      {"Gaps",
       [](std::mt19937& r, std::uint64_t) { return r() % 50 == 0 ? std::uint64_t{r()} * 1000 : 40'000; }},
      {"Growing", [](std::mt19937&, std::uint64_t i) { return std::uint64_t{1} << (i % 50); }}};
  std::mt19937 random(7);
  for (const Spacing& row : rows) {
    for (const std::size_t uCount : {1, 2, 3, 9, 10, 500}) {
      SCOPED_TRACE(std::string(row.name) + " " + std::to_string(uCount));
      std::vector<std::uint64_t> times = {1000};
      while (times.size() < uCount) {
        times.push_back(times.back() + row.step(random, times.size()));
      }
      const auto entries = indexOf(times);
      const IndexView view(FILEINDEX_NTP, entries.data(), static_cast<std::uint32_t>(uCount));
      for (const std::uint64_t uTime : times) {
        for (const std::uint64_t uWanted : {uTime, uTime + 1, std::max<std::uint64_t>(uTime - 1, 1000)}) {
          const auto behind = std::upper_bound(times.begin(), times.end(), uWanted);
          ASSERT_EQ(view.lastAtOrBefore(uWanted), behind - times.begin() - 1) << uWanted;
        }
      }
    }
  }
}

TEST(IndexSearch, StaysInsideTimesOutOfOrder) {
  std::mt19937_64 random(11);
  for (int iRound = 0; iRound < 200; ++iRound) {
    std::vector<std::uint64_t> times(1 + random() % 100);
    for (std::uint64_t& uTime : times) {
      uTime = random() >> (random() % 64);
    }
    const auto entries = indexOf(times);
    const IndexView view(FILEINDEX_NTP, entries.data(), static_cast<std::uint32_t>(times.size()));
    EXPECT_LT(view.lastAtOrBefore(std::max(times[0], random())), times.size());
  }
}

/// A stream of 25 frames a second with so many entries, every fourth from the third on a key frame.
void fillStream(FileStreamInfo& stream, IndexType eType, std::uint32_t uCount) {
  stream.setStreamInfo(videoStream());
  stream.setIndexType(eType);
  for (std::uint32_t i = 0; i < uCount; ++i) {
    const bool bKeyFrame = i % 4 == 2;
    const std::uint64_t uMark = bKeyFrame && eType != FILEINDEX_CI ? index_layout::kKeyFrame : 0;
    stream.append({i * 10 | uMark, kBegin + i * kPeriod, i, bKeyFrame ? 3U : 2U, 0});
  }
}

TEST(StreamIndex, AnswersByNumberAndTimeOrSaysWhyNot) {
  for (const IndexType eType : {FILEINDEX_POSITION, FILEINDEX_NTP, FILEINDEX_CI}) {
    SCOPED_TRACE(eType);
    FileStreamInfo stream;
    fillStream(stream, eType, 7);
    std::uint32_t uNumber = 5;
    EXPECT_EQ(stream.getPosByNumber(uNumber, true), 20U);
    EXPECT_EQ(uNumber, 2U);
    uNumber = 1;
    const char* const szForm = eType == FILEINDEX_POSITION ? "FILEINDEX_POSITION"
                               : eType == FILEINDEX_NTP    ? "FILEINDEX_NTP"
                                                           : "FILEINDEX_CI";
    EXPECT_EQ(thrownBy([&] { stream.getPosByNumber(uNumber, true); }),
              std::string("getPosByNumber(): seek before start (") + szForm + ")");
    uNumber = 7;
    EXPECT_EQ(thrownBy([&] { stream.getPosByNumber(uNumber, false); }), "getPosByNumber(): seek past end");
    EXPECT_EQ(thrownBy([&] { stream.isKeyFrame(7); }), "seek past end");
    EXPECT_TRUE(stream.isKeyFrame(2));
    EXPECT_FALSE(stream.isKeyFrame(3));
    const auto byTime = [&](std::uint64_t ullTime, bool bToKeyFrame = false) {
      return stream.getPosByTime(JTime::fromMicroseconds(ullTime), uNumber, bToKeyFrame);
    };
    if (eType == FILEINDEX_POSITION) {
      EXPECT_EQ(thrownBy([&] { byTime(kBegin); }), "time index not available");
      EXPECT_EQ(stream.getTimeByNumber(1), JTime());
      continue;
    }
    EXPECT_EQ(thrownBy([&] { byTime(kBegin - 1); }), "seek before start");
    EXPECT_EQ(byTime(kBegin + 7 * kPeriod - 1), 60U);
    EXPECT_EQ(thrownBy([&] { byTime(kBegin + 7 * kPeriod); }), "seek past end");
    EXPECT_EQ(byTime(kBegin + 5 * kPeriod + 1, true), 20U);
    EXPECT_EQ(byTime(kBegin + kPeriod, true), 0U);
    EXPECT_EQ(uNumber, 0U);
    stream.releaseEntries();
    EXPECT_EQ(thrownBy([&] { byTime(kBegin); }), eType == FILEINDEX_NTP
                                                     ? "time index (NtpIndex) not available"
                                                     : "time index (CIIndex) not available");
  }
}

}  // namespace
