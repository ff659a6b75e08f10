#include "storage/SliceMap.h"

#include <iterator>
#include <utility>

#include "coreapi/qmutils/error/loghook.h"

namespace {

bool contains(const TimeSpan& outer, const TimeSpan& inner) noexcept {
  return outer.startDate <= inner.startDate && inner.endDate <= outer.endDate;
}

void logReplaced(const Slice& ignored, const Slice& kept) {
  qm_err::log(qm_err::kLogWarning,
              "addSlice: because of overlapped time stamps, '%s' (the FileMaster will therefore ignore this "
              "slice!) will be replaced by '%s'",
              ignored.getPath().c_str(), kept.getPath().c_str());
}

void logShortened(const Slice& shortened, const Slice& next) {
  qm_err::log(qm_err::kLogWarning,
              "addSlice: because of overlapped time stamps, '%s' counts up to the start of '%s' only",
              shortened.getPath().c_str(), next.getPath().c_str());
}

}  // namespace

void SliceMap::insert(std::unique_ptr<Slice> pSlice) {
  const TimeSpan span = pSlice->getSpan();
  remove(span);  // shortening may have made one of the same span
  m_uUsedSpace += pSlice->getSize();
  m_slices.emplace_hint(m_slices.end(), span, std::move(pSlice));  // most come in the order of time
}

std::unique_ptr<Slice> SliceMap::take(Position position) {
  auto pSlice = std::move(m_slices.extract(position).mapped());
  m_uUsedSpace -= pSlice->getSize();
  return pSlice;
}

bool SliceMap::add(std::unique_ptr<Slice> pSlice) {
  Position other = firstFrom(pSlice->getSpan().startDate);
  while (other != m_slices.end() && other->first.startDate <= pSlice->getSpan().endDate) {
    const Position current = other++;
    const TimeSpan& span = pSlice->getSpan();
    if (!overlap(current->first, span)) {
      continue;
    }
    if (contains(span, current->first)) {
      logReplaced(*current->second, *pSlice);
      take(current);
    } else if (contains(current->first, span)) {
      logReplaced(*pSlice, *current->second);
      return false;
    } else if (current->first.startDate < span.startDate) {
      auto pShortened = take(current);
      logShortened(*pShortened, *pSlice);
      pShortened->m_span.endDate = JTime(span.startDate).subtract(1);
      insert(std::move(pShortened));
    } else {
      logShortened(*pSlice, *current->second);
      pSlice->m_span.endDate = JTime(current->first.startDate).subtract(1);
      break;
    }
  }
  insert(std::move(pSlice));
  return true;
}

bool SliceMap::remove(const TimeSpan& span) {
  const Position position = at(span);
  if (position == m_slices.end()) {
    return false;
  }
  take(position);
  return true;
}

SliceMap::Position SliceMap::firstFrom(JTime date) const {
  Position position = m_slices.lower_bound(TimeSpan(date, JTime::zero()));
  while (position != m_slices.begin() && std::prev(position)->first.endDate >= date) {
    --position;
  }
  return position;
}

SliceMap::Position SliceMap::find(const TimeSpan& span, int iMode) const {
  if (const Position same = at(span); same != m_slices.end()) {
    return same;
  }
  Position position = firstFrom(span.startDate);
  while (position != m_slices.end() && position->first.endDate == span.startDate &&
         std::next(position) != m_slices.end() && std::next(position)->first.startDate == span.startDate) {
    ++position;
  }
  if (position != m_slices.end() && position->first.startDate <= span.endDate) {
    return position;
  }
  switch (iMode) {
    case kNext:
      return position;
    case kPrevious:
      return position == m_slices.begin() ? m_slices.end() : std::prev(position);
    default:
      return m_slices.end();
  }
}
