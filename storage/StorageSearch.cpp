#include <algorithm>
#include <exception>
#include <memory>
#include <string_view>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jgenericerror.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/rpc/jrpccontainers.h"
#include "storage/RowText.h"
#include "storage/RpcDate.h"
#include "storage/StorageSearchImpl.h"

namespace {

/// Reads the number that servers of the first generation write. That it isn't there is the rule; so nothing
/// is thrown for it, and the line that tells of it is made only for a log that wants it: a result may have a
/// million items.
bool readOldType(JRPCDeserialisation& source, std::int32_t& iType) {
  try {
    if (source.deserialise("Type", iType, false)) {
      return true;
    }
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    return false;
  }
  if (JLog::isTaken(qm_err::kLogException)) {
    const JDeserialisationError missing("cannot deserialise", "deserialise(Type)", __FILE_NAME__, __LINE__);
    JCATCH_LOG(&missing);
  }
  return false;
}

std::string_view dataTypeOfOldType(std::int32_t iType) {
  switch (iType) {
    case StorageSearchItem::kAnyFile:
      return "*";
    case StorageSearchItem::kVideoFile:
      return "video/x-qmv[1-2]";
    case StorageSearchItem::kAudioFile:
      return "audio/x-qmmp3";
    default:
      qm_err::logText(qm_err::kLogCritical, "FATAL ASSERTION FAILED !! (Unsupported file type)");
      QM_THROW(JDeserialisationError, "Unsupported file type", "deserialise(Type)", __FILE_NAME__, __LINE__);
  }
}

}  // namespace

StorageSearchItemImpl::StorageSearchItemImpl(const TimeSpan& span, std::int32_t iFps, StreamPtr pStream)
    : TimeSpan(span), m_pStream(std::move(pStream)), m_iFps(iFps) {}

StorageSearchItemImpl::StorageSearchItemImpl(const TimeSpan& span, std::string sSourceName, std::int32_t iFps,
                                             std::string sDataType)
    : StorageSearchItemImpl(
          span, iFps, std::make_shared<const Stream>(Stream{std::move(sSourceName), std::move(sDataType)})) {}

const StorageSearchItemImpl::Stream& StorageSearchItemImpl::stream() const noexcept {
  static const Stream s_unknown;
  return m_pStream ? *m_pStream : s_unknown;
}

void StorageSearchItemImpl::shareStream(const StorageSearchItemImpl& other) {
  if (stream() == other.stream()) {
    m_pStream = other.m_pStream;
  }
}

std::int32_t StorageSearchItemImpl::getFileType() const {
  const std::string_view sType = getDataType();
  if (sType.starts_with("video")) {
    return kVideoFile;
  }
  if (sType.starts_with("audio")) {
    return kAudioFile;
  }
  return sType.starts_with("application") ? kDataFile : kAnyFile;
}

std::string StorageSearchItemImpl::toString() const {
  constexpr std::size_t kFixedSize = 128;
  return qm_storage::RowText(kFixedSize + getSourceName().size())
      .text("Sourcename", getSourceName())
      .number("FileType", getFileType())
      .number("Fps", m_iFps)
      .date("StartDate", startDate)
      .date("EndDate", endDate)
      .take();
}

JTime StorageSearchItemImpl::getDuration() const {
  return JTime::fromMicroseconds(endDate < startDate ? 0 : endDate.wrappingDifference(startDate));
}

void StorageSearchItemImpl::serialise(JRPCSerialisation& target) const {
  target.serialise("DataType", getDataType());
  target.serialise("FPS", m_iFps);
  target.serialise("SourceName", getSourceName());
  qm_storage::serialiseDate(target, "StartDate", startDate);
  qm_storage::serialiseDate(target, "EndDate", endDate);
}

void StorageSearchItemImpl::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  const auto pStream = std::make_shared<Stream>(stream());
  m_pStream = pStream;
  std::int32_t iType = 0;
  if (readOldType(source, iType)) {
    pStream->sDataType = dataTypeOfOldType(iType);
  } else {
    source.deserialise("DataType", pStream->sDataType, true);
  }
  source.deserialise("FPS", m_iFps, true);
  source.deserialise("SourceName", pStream->sSourceName, true);
  qm_storage::deserialiseDate(source, "StartDate", startDate);
  qm_storage::deserialiseDate(source, "EndDate", endDate);
}

StorageSearchResultSetImpl::~StorageSearchResultSetImpl() {
  for (StorageSearchItem* pItem : m_items) {
    delete pItem;
  }
}

void StorageSearchResultSetImpl::add(StorageSearchItem* pItem) {
  JASSERT(pItem != nullptr);
  if (pItem == nullptr) {
    return;
  }
  std::unique_ptr<StorageSearchItem> pOwned(pItem);
  m_items.push_back(pItem);
  static_cast<void>(pOwned.release());
}

const StorageSearchItem* StorageSearchResultSetImpl::at(std::uint32_t uIndex) const {
  JASSERT(uIndex < size());
  return nth(uIndex);
}

StorageSearchItem* StorageSearchResultSetImpl::at(std::uint32_t uIndex) {
  JASSERT(uIndex < size());
  return nth(uIndex);
}

StorageSearchItem* StorageSearchResultSetImpl::nth(std::uint32_t uIndex) {
  return uIndex < size() ? m_items[uIndex] : nullptr;
}

const StorageSearchItem* StorageSearchResultSetImpl::nth(std::uint32_t uIndex) const {
  return uIndex < size() ? m_items[uIndex] : nullptr;
}

StorageSearchResultSet::Iterator StorageSearchResultSetImpl::erase(Iterator it) {
  const std::uint32_t uIndex = indexOf(it);
  if (uIndex < size()) {
    m_items.erase(m_items.begin() + uIndex);
  }
  return {*this, uIndex};
}

std::uint32_t StorageSearchResultSetImpl::indexOf(const Iterator& it) {
  return std::as_const(*this).indexOf(it);
}

std::uint32_t StorageSearchResultSetImpl::indexOf(const ConstIterator& it) const {
  QM_ASSERT_AS(it.getSet() == this, "it.m_pSet==m_pSet");
  return it.getSet() == this ? std::min(it.getIndex(), size()) : size();
}

void StorageSearchResultSetImpl::serialise(JRPCSerialisation& target) const {
  target.serialise("size", size());
  qm_utils::RpcSlotName slot("vec");
  std::uint32_t uIndex = 0;
  for (const StorageSearchItem* pItem : m_items) {
    target.serialise(slot.of(uIndex++), pItem->getRpcObject());
  }
}

void StorageSearchResultSetImpl::deserialise(JRPCDeserialisation& source, bool /*bRequired*/) {
  const std::uint32_t uSize = qm_utils::deserialiseSize(source);
  m_items.reserve(m_items.size() + std::min<std::size_t>(uSize, source.getEntryCount()));
  qm_utils::RpcSlotName slot("vec");
  const StorageSearchItemImpl* pBefore = nullptr;
  for (std::uint32_t uIndex = 0; uIndex < uSize; ++uIndex) {
    auto pItem = std::make_unique<StorageSearchItemImpl>();
    StorageSearchItemImpl& item = *pItem;
    add(pItem.release());
    source.deserialise(slot.of(uIndex), item, true);
    if (pBefore != nullptr) {
      item.shareStream(*pBefore);
    }
    pBefore = &item;
  }
}
