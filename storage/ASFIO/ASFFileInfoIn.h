#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmxml/qmxml.h"
#include "storage/ASFIO/ASFFileInfo.h"
#include "storage/ASFIO/asfheaderreader.h"

class FileHeadReader;
class JFileSocket;

/// The description of an ASF file that stands on disk, of any of the three kinds. It can mend the file: build
/// the index that a writer never wrote, and cut the file off at a date.
class ASFFileInfoIn : public ASFFileInfo {
 public:
  /// Reads header and index objects of a file whose start the socket stands at. A file whose writer never
  /// ended has no index; it then grows as the file is walked. Throws JTextError for what isn't such a file or
  /// has a damaged header. An index that is damaged or too large for memory is only missing.
  ASFFileInfoIn(JFileSocket& socket, const std::string& sName, bool bMapIndex);

  /// Reads the header alone, of a channel that can only be read in sequence; the reader stands at the first
  /// data unit then.
  ASFFileInfoIn(FileHeadReader& reader, const std::string& sName);

  ~ASFFileInfoIn() override;

  /// Whether the file came with an index.
  bool hasIndex() const noexcept { return m_bHasIndex; }

  /// Whether a stream lacks its index although others have theirs: what stands behind the data broke off.
  bool lacksIndex() const noexcept;

  /// Drops the entries of all streams.
  void releaseIndexes();

  /// Makes the header true for the indexes in memory, and with `bWrite` writes both: the index objects behind
  /// `uDataSize` bytes of data, where the file then ends, and at last the header. `pSocket` is needed for
  /// that. Throws what the socket throws; the file then is one that can be mended again.
  void fixIndexInfo(std::uint64_t uDataSize, bool bWrite, JFileSocket* pSocket);

  void rebuildIndex(bool bWriteBack, FileProgress* pProgress, JTime date) override;
  void truncate(JTime date) override;

 private:
  void readHeader(FileHeadReader& reader);
  void readFileParameters();
  void describeStream(std::uint32_t uStream);
  void readIndexObjects(JFileSocket& socket, bool bMapIndex);
  void readIndexObject(JFileSocket& socket, const asf_layout::Guid& id, std::uint64_t ullAt,
                       std::uint64_t ullSize, bool bMapIndex);
  void readEntries(JFileSocket& socket, std::uint32_t uStream, IndexType eType, std::uint64_t ullAt,
                   std::uint64_t ullSize, bool bMapIndex);
  void dateByIndex(std::uint32_t uStream);
  void passOverUnindexed(JFileSocket& socket, std::uint64_t ullObjectAt);
  void settleStreamsWithoutFrames();
  void beginRebuild();
  void beginRebuild(JTime date);
  void putTotals(std::uint64_t uDataSize);
  void writeIndexes(JFileSocket& socket) const;
  void writeHeader(JFileSocket& socket) const;

  QMXmlUse m_xml;  ///< descriptions of streams are XML
  AsfHeaderReader m_header;
  bool m_bHasIndex = false;
  std::uint32_t m_uNextIndexed = 1;  ///< stream that the next index object belongs to
};
