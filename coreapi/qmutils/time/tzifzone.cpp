#include "coreapi/qmutils/time/tzifzone.h"

#include <algorithm>
#include <cstring>

#include "coreapi/platform/byteorder.h"

namespace qm_utils {

namespace {

constexpr std::size_t kHeaderSize = 44;
constexpr std::size_t kCountsOffset = 20;
constexpr std::size_t kTypeSize = 6;
constexpr std::size_t kLeapSecondSize = 8;

std::int32_t readSigned(const std::uint8_t* pFrom) noexcept {
  return static_cast<std::int32_t>(qm_platform::readBE32(pFrom));
}

}  // namespace

std::shared_ptr<const TzifZone> TzifZone::parse(std::span<const std::uint8_t> image) {
  const std::shared_ptr<TzifZone> pZone(new TzifZone);
  return pZone->read(image) ? pZone : nullptr;
}

std::shared_ptr<const TzifZone> TzifZone::utc(const std::string& sAbbreviation) {
  const std::shared_ptr<TzifZone> pZone(new TzifZone);
  pZone->m_types.push_back({0, false, sAbbreviation});
  return pZone;
}

bool TzifZone::read(std::span<const std::uint8_t> image) {
  if (image.size() < kHeaderSize || std::memcmp(image.data(), "TZif", 4) != 0) {
    return false;
  }
  const auto count = [&image](std::size_t index) -> std::uint64_t {
    return qm_platform::readBE32(image.data() + kCountsOffset + 4 * index);
  };
  const std::uint64_t isutcnt = count(0);
  const std::uint64_t isstdcnt = count(1);
  const std::uint64_t leapcnt = count(2);
  const std::uint64_t timecnt = count(3);
  const std::uint64_t typecnt = count(4);
  const std::uint64_t charcnt = count(5);
  const std::uint64_t size =
      timecnt * 5 + typecnt * kTypeSize + charcnt + leapcnt * kLeapSecondSize + isstdcnt + isutcnt;
  if (typecnt == 0 || size > image.size() - kHeaderSize) {
    return false;
  }
  const std::uint8_t* const pTimes = image.data() + kHeaderSize;
  const std::uint8_t* const pIndices = pTimes + timecnt * 4;
  const std::uint8_t* const pTypes = pIndices + timecnt;
  const std::uint8_t* const pCharacters = pTypes + typecnt * kTypeSize;
  const std::uint8_t* const pLeapSeconds = pCharacters + charcnt;

  for (std::size_t i = 0; i < timecnt; ++i) {
    const Transition transition{readSigned(pTimes + 4 * i), pIndices[i]};
    if (transition.type >= typecnt || (i > 0 && transition.iTime <= m_transitions.back().iTime)) {
      return false;
    }
    m_transitions.push_back(transition);
  }
  for (std::size_t i = 0; i < typecnt; ++i) {
    const std::uint8_t* const pType = pTypes + i * kTypeSize;
    const std::size_t abbreviation = pType[5];
    if (abbreviation >= charcnt) {
      return false;
    }
    const std::uint8_t* const pAbbreviation = pCharacters + abbreviation;
    m_types.push_back({readSigned(pType), pType[4] != 0,
                       std::string(pAbbreviation, std::find(pAbbreviation, pLeapSeconds, std::uint8_t{0}))});
  }
  for (std::size_t i = 0; i < leapcnt; ++i) {
    const std::uint8_t* const pLeapSecond = pLeapSeconds + i * kLeapSecondSize;
    const LeapSecond leapSecond{readSigned(pLeapSecond), readSigned(pLeapSecond + 4)};
    if (i > 0 && leapSecond.iTime <= m_leapSeconds.back().iTime) {
      return false;
    }
    m_leapSeconds.push_back(leapSecond);
  }
  const auto standard =
      std::find_if(m_types.begin(), m_types.end(), [](const Type& type) { return !type.bDaylight; });
  m_typeBefore = standard == m_types.end() ? 0 : static_cast<std::size_t>(standard - m_types.begin());
  return true;
}

const TzifZone::Type& TzifZone::typeAt(std::int64_t iUnixSeconds) const {
  const auto next = std::upper_bound(
      m_transitions.begin(), m_transitions.end(), iUnixSeconds,
      [](std::int64_t iTime, const Transition& transition) { return iTime < transition.iTime; });
  return m_types[next == m_transitions.begin() ? m_typeBefore : std::prev(next)->type];
}

LocalInstant TzifZone::at(std::int64_t iUnixSeconds) const {
  const Type& type = typeAt(iUnixSeconds);
  const auto next = std::upper_bound(
      m_leapSeconds.begin(), m_leapSeconds.end(), iUnixSeconds,
      [](std::int64_t iTime, const LeapSecond& leapSecond) { return iTime < leapSecond.iTime; });
  const std::int64_t iCorrection = next == m_leapSeconds.begin() ? 0 : std::prev(next)->iCorrection;
  return {iUnixSeconds + type.iOffset - iCorrection, type.bDaylight, type.sAbbreviation};
}

}  // namespace qm_utils
