#include "storage/FileStreamInfo.h"

#include <bit>
#include <cstring>
#include <limits>

#include "coreapi/platform/largeblock.h"
#include "coreapi/qmci/fraction.h"

namespace {

/// Entries of a new array; from there on it doubles.
constexpr std::uint64_t kFirstEntries = 1024;

}  // namespace

FileStreamInfo::FileStreamInfo(const FileStreamInfo& other) {
  copyFrom(other);
}

FileStreamInfo& FileStreamInfo::operator=(const FileStreamInfo& other) {
  if (this != &other) {
    copyFrom(other);
  }
  return *this;
}

/// The copy's array has the size that an array grown to this count has, so that it can grow on.
void FileStreamInfo::copyFrom(const FileStreamInfo& other) {
  const JAutoLock lock(other.m_mutex);
  m_uCount = other.m_uCount;
  m_firstDate = other.m_firstDate;
  m_lastDate = other.m_lastDate;
  m_period = other.m_period;
  m_params = other.m_params;
  m_eIndexType = other.m_eIndexType;
  m_streamInfo = other.m_streamInfo;
  m_pMapped.reset();
  m_pEntries.reset();
  if (other.getEntries() != nullptr) {
    const std::size_t entrySize = index_layout::entrySize(m_eIndexType);
    m_pEntries = qm_platform::tryAllocate(entriesFor(m_uCount) * entrySize);
    if (m_pEntries) {
      std::memcpy(m_pEntries.get(), other.getEntries(), m_uCount * entrySize);
    }
  }
}

std::uint32_t FileStreamInfo::getCount() const {
  const JAutoLock lock(m_mutex);
  return m_uCount;
}

void FileStreamInfo::setCount(std::uint32_t uCount) {
  const JAutoLock lock(m_mutex);
  m_uCount = uCount;
}

void FileStreamInfo::setIndexType(IndexType eType) {
  const JAutoLock lock(m_mutex);
  m_eIndexType = eType;
  m_pMapped.reset();
  m_pEntries.reset();
}

void FileStreamInfo::setStreamInfo(const qm_ci::StreamInfo& streamInfo) {
  m_streamInfo = streamInfo;
  // The time base names its terms the other way round: a period is its denominator over its numerator.
  std::uint64_t ullRate = 0;
  std::uint64_t ullMilliseconds = 0;
  streamInfo.getTimeBase(&ullRate, &ullMilliseconds);
  if (ullRate == 0 || ullMilliseconds == 0) {
    return;
  }
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  if (ullMilliseconds <= kLargest) {
    m_period = {static_cast<std::uint32_t>(ullMilliseconds), static_cast<std::uint32_t>(ullRate)};
  } else {
    const qm_ci::Fraction period = qm_ci::nearestFraction(ullMilliseconds, ullRate);
    m_period = {period.uNumerator, period.uDenominator};
  }
}

std::uint64_t FileStreamInfo::entriesFor(std::uint64_t uCount) noexcept {
  return uCount < kFirstEntries ? kFirstEntries : std::bit_floor(uCount) * 2;
}

void FileStreamInfo::append(const IndexEntry& entry) {
  const JAutoLock lock(m_mutex);
  const std::size_t entrySize = index_layout::entrySize(m_eIndexType);
  if (m_uCount == 0) {
    m_pEntries = qm_platform::tryAllocate(entriesFor(0) * entrySize);
  }
  if (m_pEntries) {
    writeIndexEntry(entry, m_eIndexType, m_pEntries.get() + m_uCount * entrySize);
  }
  ++m_uCount;
  // The array always has room for one entry more.
  if (m_pEntries && m_uCount >= kFirstEntries && std::has_single_bit(m_uCount)) {
    grow(entrySize);
  }
}

void FileStreamInfo::grow(std::size_t entrySize) {
  auto pEntries = qm_platform::tryAllocate(entriesFor(m_uCount) * entrySize);
  if (pEntries) {
    std::memcpy(pEntries.get(), m_pEntries.get(), m_uCount * entrySize);
  }
  m_pEntries = std::move(pEntries);
}

void FileStreamInfo::countOnly() {
  const JAutoLock lock(m_mutex);
  ++m_uCount;
}
