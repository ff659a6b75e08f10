#include "storage/AnalyticsData.h"

#include <algorithm>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "storage/RowText.h"

std::string AnalyticsSourceItem::toString() const {
  constexpr std::size_t kFixedSize = 128;
  return qm_storage::RowText(kFixedSize)
      .text("Sourcename", sourceName)
      .text("AnalyticsSourceName", analyticsSourceName)
      .text("AnalyticsName", analyticsName)
      .text("AnalyticsType", analyticsType)
      .number("Fps", fps)
      .number("GridWidth", gridWidth)
      .number("GridHeight", gridHeight)
      .take();
}

void AnalyticsSourceItem::serialise(JRPCSerialisation& target) const {
  target.serialise("SourceName", sourceName);
  target.serialise("AnalyticsSourceName", analyticsSourceName);
  target.serialise("AnalyticsName", analyticsName);
  target.serialise("AnalyticsType", analyticsType);
  target.serialise("FPS", fps);
  target.serialise("GridWidth", gridWidth);
  target.serialise("GridHeight", gridHeight);
}

void AnalyticsSourceItem::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  source.deserialise("SourceName", sourceName, true);
  source.deserialise("AnalyticsSourceName", analyticsSourceName, true);
  source.deserialise("AnalyticsName", analyticsName, true);
  source.deserialise("AnalyticsType", analyticsType, true);
  source.deserialise("FPS", fps, true);
  source.deserialise("GridWidth", gridWidth, false);
  source.deserialise("GridHeight", gridHeight, false);
}

void AnalyticsSourceResultSet::add(std::unique_ptr<AnalyticsSourceItem> pItem) {
  JASSERT(pItem != nullptr);
  if (pItem != nullptr) {
    m_items.push_back(std::move(pItem));
  }
}

const AnalyticsSourceItem* AnalyticsSourceResultSet::at(std::uint32_t uIndex) const noexcept {
  return uIndex < size() ? m_items[uIndex].get() : nullptr;
}

void AnalyticsSourceResultSet::serialise(JRPCSerialisation& target) const {
  target.serialise("size", size());
  qm_utils::RpcSlotName slot("vec");
  std::uint32_t uIndex = 0;
  for (const auto& pItem : m_items) {
    target.serialise(slot.of(uIndex++), *pItem);
  }
}

void AnalyticsSourceResultSet::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  const std::uint32_t uSize = qm_utils::deserialiseSize(source);
  qm_utils::RpcSlotName slot("vec");
  for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
    m_items.push_back(std::make_unique<AnalyticsSourceItem>());
    source.deserialise(slot.of(uIndex), *m_items.back(), true);
  }
}
