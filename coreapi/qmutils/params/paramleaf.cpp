#include "coreapi/qmutils/params/paramleaf.h"

#include <algorithm>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "coreapi/qmutils/params/paramreader.h"

namespace qm_utils {

namespace {

/// The length of a rest that needs more than its byte, and what stands in that byte then.
constexpr std::size_t kLongLengthSize = 8;
constexpr unsigned char kLongLength = 0xFF;

/// Dead bytes that aren't worth a compaction.
constexpr std::size_t kToleratedDead = 4096;

}  // namespace

ParamLeaf::~ParamLeaf() {
  for (std::size_t slot = 0; m_held > 0; ++slot) {
    dropValue(m_slots[slot]);
  }
}

std::unique_ptr<ParamLeaf> ParamLeaf::clone() const {
  auto pClone = std::make_unique<ParamLeaf>(m_sAnchor);
  if (m_held == 0) {
    pClone->m_slots = m_slots;
    pClone->m_sBytes = m_sBytes;
    pClone->m_dead = m_dead;
    return pClone;
  }
  pClone->m_slots.reserve(count());
  for (std::size_t slot = 0; slot < count(); ++slot) {
    const std::string sName = name(slot);
    pClone->insert(slot, pClone->keyOf(sName), value(slot));
  }
  return pClone;
}

bool ParamLeaf::canTake(std::string_view sName) const noexcept {
  return sName >= m_sAnchor;
}

ParamLeaf::Key ParamLeaf::keyOf(std::string_view sName) const noexcept {
  return {sName, std::min(sharedLength(sName, m_sAnchor), kMaxShared)};
}

int ParamLeaf::compare(std::size_t slot, const Key& key) const noexcept {
  const std::size_t shared = m_slots[slot].shared;
  if (shared != key.shared) {
    return shared > key.shared ? -1 : 1;
  }
  return nameEnd(slot).compare(key.name.substr(shared));
}

/// Steps away from the hint in growing steps, then halves what is left.
ParamLeaf::Place ParamLeaf::find(const Key& key, std::size_t hint) const noexcept {
  std::size_t low = 0;
  std::size_t high = count();
  std::size_t probe = std::min(hint, high - 1);
  std::size_t step = 1;
  bool bStepping = true;
  bool bUp = false;
  while (low < high) {
    const int iOrder = compare(probe, key);
    if (iOrder == 0) {
      return {probe, true};
    }
    const bool bBelow = iOrder < 0;
    bStepping = bStepping && (step == 1 || bUp == bBelow);
    bUp = bBelow;
    if (bBelow) {
      low = probe + 1;
    } else {
      high = probe;
    }
    if (!bStepping) {
      probe = low + (high - low) / 2;
    } else if (bUp) {
      probe = std::min(low + step - 1, high - 1);
    } else {
      probe = high - std::min(step, high - low);
    }
    step *= 2;
  }
  return {low, false};
}

ParamLeaf::Record ParamLeaf::recordOf(const Slot& slot) const noexcept {
  const char* const pStart = m_sBytes.data() + slot.offset;
  const char* pRest = pStart + 1;
  std::size_t restLength = static_cast<unsigned char>(*pStart);
  if (restLength == kLongLength) {
    restLength = qm_platform::readLE64(pRest);
    pRest += kLongLengthSize;
  }
  const std::string_view sBytes(pRest + restLength, hasBytes(slot) ? slot.content.size : 0);
  return {{pRest, restLength}, sBytes, static_cast<std::size_t>(sBytes.data() + sBytes.size() - pStart)};
}

void ParamLeaf::writeRecord(Slot& slot, std::string_view sRest, std::string_view sBytes) {
  slot.offset = m_sBytes.size() & kMaxOffset;
  if (sRest.size() < kLongLength) {
    m_sBytes.push_back(static_cast<char>(sRest.size()));
  } else {
    char length[1 + kLongLengthSize] = {static_cast<char>(kLongLength)};
    qm_platform::writeLE64(length + 1, sRest.size());
    m_sBytes.append(length, sizeof length);
  }
  m_sBytes.append(sRest).append(sBytes);
}

std::string_view ParamLeaf::nameEnd(std::size_t slot) const noexcept {
  return recordOf(m_slots[slot]).rest;
}

std::string ParamLeaf::name(std::size_t slot) const {
  return std::string(nameStart(slot)).append(nameEnd(slot));
}

ParamValue ParamLeaf::value(std::size_t slot) const noexcept {
  const Slot& from = m_slots[slot];
  if (from.kind == kHeld) {
    return from.content.held->value();
  }
  const auto eType = static_cast<JVariant::Type>(from.kind);
  if (hasBytes(from)) {
    const std::string_view sBytes = recordOf(from).bytes;
    return ParamValue::ofBytes(sBytes.data(), sBytes.size(), eType);
  }
  return eType == JVariant::T_DOUBLE ? ParamValue::ofDouble(from.content.number)
                                     : ParamValue::ofInteger(from.content.integer, eType);
}

/// Sets kind and content; the bytes of a value are up to the caller.
void ParamLeaf::setValue(Slot& slot, const ParamValue& value) noexcept {
  slot.kind = static_cast<std::uint64_t>(value.type) & 0xFF;
  if (value.hasBytes()) {
    slot.content.size = value.size;
  } else if (value.type == JVariant::T_DOUBLE) {
    slot.content.number = value.number;
  } else {
    slot.content.integer = value.integer;
  }
}

/// Leaves the name of a slot and an empty value.
void ParamLeaf::dropValue(Slot& slot) noexcept {
  if (slot.kind == kHeld) {
    delete slot.content.held;
    --m_held;
  } else if (hasBytes(slot)) {
    m_dead += slot.content.size;
  }
  setValue(slot, {});
}

void ParamLeaf::insertSlot(std::size_t slot, const Key& key, Slot filled, std::string_view sBytes) {
  filled.shared = key.shared & kMaxShared;
  writeRecord(filled, key.name.substr(key.shared), sBytes);
  m_slots.insert(m_slots.begin() + static_cast<std::ptrdiff_t>(slot), filled);
}

void ParamLeaf::insert(std::size_t slot, const Key& key, const ParamValue& value) {
  Slot filled;
  setValue(filled, value);
  insertSlot(slot, key, filled, value.hasBytes() ? value.bytes() : std::string_view());
}

void ParamLeaf::insert(std::size_t slot, const Key& key, std::unique_ptr<JVariant> pHeld) {
  insert(slot, key, ParamValue());
  replace(slot, std::move(pHeld));
}

void ParamLeaf::replace(std::size_t slot, const ParamValue& value) {
  Slot& to = m_slots[slot];
  if (value.hasBytes()) {
    // The name is written again, in front of the bytes of the value.
    Slot filled = to;
    setValue(filled, value);
    const Record old = recordOf(to);
    writeRecord(filled, std::string(old.rest), value.bytes());
    m_dead += old.size - old.bytes.size();
    dropValue(to);
    to = filled;
  } else {
    dropValue(to);
    setValue(to, value);
  }
  compactIfWorthwhile();
}

void ParamLeaf::replace(std::size_t slot, std::unique_ptr<JVariant> pHeld) {
  Slot& to = m_slots[slot];
  dropValue(to);
  to.kind = kHeld;
  to.content.held = pHeld.release();
  ++m_held;
  compactIfWorthwhile();
}

const JVariant* ParamLeaf::hold(std::size_t slot) {
  if (m_slots[slot].kind != kHeld) {
    replace(slot, std::make_unique<JVariant>(name(slot), value(slot)));
  }
  return m_slots[slot].content.held;
}

void ParamLeaf::erase(std::size_t slot) {
  const Record gone = recordOf(m_slots[slot]);
  m_dead += gone.size - gone.bytes.size();
  dropValue(m_slots[slot]);
  m_slots.erase(m_slots.begin() + static_cast<std::ptrdiff_t>(slot));
  compactIfWorthwhile();
  if (m_slots.size() < m_slots.capacity() / 4) {
    m_slots.shrink_to_fit();
  }
}

void ParamLeaf::moveTo(ParamLeaf& target, std::size_t first, std::size_t last) {
  std::string sName;
  for (std::size_t slot = first; slot < last; ++slot) {
    sName.assign(nameStart(slot)).append(nameEnd(slot));
    const Key key = target.keyOf(sName);
    Slot& from = m_slots[slot];
    if (from.kind == kHeld) {
      target.insert(target.count(), key, std::unique_ptr<JVariant>(from.content.held));
      setValue(from, {});
      --m_held;
    } else {
      target.insert(target.count(), key, value(slot));
    }
    m_dead += recordOf(from).size;
  }
  m_slots.erase(m_slots.begin() + static_cast<std::ptrdiff_t>(first),
                m_slots.begin() + static_cast<std::ptrdiff_t>(last));
  compactIfWorthwhile();
}

void ParamLeaf::trim() {
  m_slots.shrink_to_fit();
  m_sBytes.shrink_to_fit();
}

void ParamLeaf::compactIfWorthwhile() {
  if (m_dead <= kToleratedDead || m_dead <= m_sBytes.size() / 2) {
    return;
  }
  std::string sLive;
  sLive.reserve(m_sBytes.size() - m_dead);
  for (Slot& slot : m_slots) {
    const std::size_t size = recordOf(slot).size;
    const std::size_t offset = sLive.size();
    sLive.append(m_sBytes, slot.offset, size);
    slot.offset = offset & kMaxOffset;
  }
  m_sBytes = std::move(sLive);
  m_dead = 0;
}

}  // namespace qm_utils
