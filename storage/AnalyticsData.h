#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/rpc/jrpcserialisation.h"

class SourceTable;

/// What a client learns of one analytics stream: a data stream that a plug-in computes from a source and that
/// is recorded like any other. A plain value.
///
/// On the wire: "SourceName", "AnalyticsSourceName", "AnalyticsName", "AnalyticsType", "FPS", "GridWidth",
/// "GridHeight". Peers that know no grids leave the last two out.
class AnalyticsSourceItem : public JRPCObject {
 public:
  AnalyticsSourceItem() : JRPCObject("AnalyticsSourceItem") {}

  /// The row that a host gets:
  /// Sourcename="s",AnalyticsSourceName="x",AnalyticsName="y",AnalyticsType="z",Fps=f,GridWidth=w,GridHeight=h
  std::string toString() const;

  void serialise(JRPCSerialisation& target) const override;

  /// Throws JDeserialisationError when one of the first five keys is missing.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

  std::string sourceName;           ///< the observed source
  std::string analyticsSourceName;  ///< the source that holds the analytics stream
  std::string analyticsName;        ///< the processor's name
  std::string analyticsType;        ///< the processor's type
  std::int32_t fps = 0;
  std::int32_t gridWidth = 0;
  std::int32_t gridHeight = 0;
};

/// The analytics streams that were asked for, in the order in which they were added. It owns its items; one
/// thread at a time. On the wire: "size", then each item under "vec%u", counted from 0.
class AnalyticsSourceResultSet : public JRPCObject {
 public:
  AnalyticsSourceResultSet() : JRPCObject("AnalyticsSourceResultSet") {}
  AnalyticsSourceResultSet(const AnalyticsSourceResultSet&) = delete;
  AnalyticsSourceResultSet& operator=(const AnalyticsSourceResultSet&) = delete;

  /// Null fails an assertion and adds nothing.
  void add(std::unique_ptr<AnalyticsSourceItem> pItem);

  std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(m_items.size()); }

  /// The item of an index; null when there is none.
  const AnalyticsSourceItem* at(std::uint32_t uIndex) const noexcept;

  void serialise(JRPCSerialisation& target) const override;

  /// Appends what it reads to what is there. The items that were read before an error stay in the set.
  void deserialise(JRPCDeserialisation& source, bool bRequired) override;

 private:
  std::vector<std::unique_ptr<AnalyticsSourceItem>> m_items;
};

/// The analytics streams of a rate in an archive whose observed source matches a glob. Holds the table's lock
/// for reading. Any thread.
std::unique_ptr<AnalyticsSourceResultSet> listAnalyticsSources(const SourceTable& sourceTable,
                                                               const std::string& sSourceGlob,
                                                               std::int32_t iFps);
