#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/StorageSearch.h"

/// An item of a search as it travels: a span with the source, rate and type of its stream.
///
/// Written as "DataType", "FPS", "SourceName", "StartDate", "EndDate". Servers of the first generation write
/// the number "Type" in the place of "DataType"; an item reads both. It travels under the object name of its
/// span.
class StorageSearchItemImpl final : public StorageSearchItem, public TimeSpan {
 public:
  /// What the items of a stream have in common. A search of a million items has few streams, which its items
  /// share.
  struct Stream {
    std::string sSourceName;
    std::string sDataType;

    bool operator==(const Stream&) const = default;
  };
  using StreamPtr = std::shared_ptr<const Stream>;

  StorageSearchItemImpl() = default;
  StorageSearchItemImpl(const TimeSpan& span, std::int32_t iFps, StreamPtr pStream);
  StorageSearchItemImpl(const TimeSpan& span, std::string sSourceName, std::int32_t iFps,
                        std::string sDataType);

  JRPCObject& getRpcObject() override { return *this; }
  const JRPCObject& getRpcObject() const override { return *this; }

  const std::string& getSourceName() const override { return stream().sSourceName; }
  std::int32_t getFps() const override { return m_iFps; }
  std::int32_t getFileType() const override;
  const std::string& getDataType() const override { return stream().sDataType; }
  std::string toString() const override;
  JTime getDuration() const override;
  const JTime& getStart() const override { return startDate; }
  const JTime& getEnd() const override { return endDate; }
  TimeSpan getSpan() const override { return *this; }

  void serialise(JRPCSerialisation& target) const override;

  /// Throws JDeserialisationError when a key is missing, or for a "Type" that there isn't.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  /// Shares the stream of another item, if it is the same.
  void shareStream(const StorageSearchItemImpl& other);

 private:
  const Stream& stream() const noexcept;

  StreamPtr m_pStream;  ///< null: nothing is known of it
  std::int32_t m_iFps = 0;
};

/// A result set as it travels: "size", then each item under "vec%u", counted from 0.
class StorageSearchResultSetImpl final : public StorageSearchResultSet, public JRPCObject {
 public:
  StorageSearchResultSetImpl() : JRPCObject("StorageSearchResultSet") {}
  ~StorageSearchResultSetImpl() override;
  StorageSearchResultSetImpl(const StorageSearchResultSetImpl&) = delete;
  StorageSearchResultSetImpl& operator=(const StorageSearchResultSetImpl&) = delete;

  JRPCObject& getRpcObject() override { return *this; }
  const JRPCObject& getRpcObject() const override { return *this; }

  Iterator begin() override { return {*this, 0}; }
  ConstIterator begin() const override { return {*this, 0}; }
  Iterator end() override { return {*this, size()}; }
  ConstIterator end() const override { return {*this, size()}; }
  void add(StorageSearchItem* pItem) override;
  std::uint32_t size() const override { return static_cast<std::uint32_t>(m_items.size()); }
  void clear() override { m_items.clear(); }
  StorageSearchItem* at(std::uint32_t uIndex) override;
  const StorageSearchItem* at(std::uint32_t uIndex) const override;
  Iterator erase(Iterator it) override;
  StorageSearchItem* nth(std::uint32_t uIndex) override;
  const StorageSearchItem* nth(std::uint32_t uIndex) const override;
  std::uint32_t indexOf(const Iterator& it) override;
  std::uint32_t indexOf(const ConstIterator& it) const override;

  void serialise(JRPCSerialisation& target) const override;

  /// Appends what it reads to what is there. The items that were read before an error stay in the set.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

 private:
  std::vector<StorageSearchItem*> m_items;  ///< owned
};
