#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "coreapi/qmci/qmcibitstream.h"
#include "coreapi/qmutils/socket/jiobuf.h"

namespace qm_ci {

/// One element of a packet record's table.
struct Packet {
  const std::uint8_t* pBuf = nullptr;  ///< the bytes, inside the record or outside; null when there are none
  std::uint32_t nLength = 0;
  std::uint32_t dwGroup = 0;
};

/// One element of a substream record's table.
struct Substream {
  std::uint32_t nOffset = 0;  ///< from the start of the record
  std::uint32_t nLength = 0;
};

/// Room in a record that a reader fills; a null pointer when there is none.
struct PacketSpace {
  std::uint8_t* pBuf = nullptr;
  std::uint32_t nLength = 0;
};

/// Read access to a record that stays the caller's. It trusts nothing in the record: counts, offsets and
/// lengths are checked against the block's real size, and what doesn't fit is logged as a failed assertion
/// and refused, so that a record may come from a peer or a file.
///
/// Nothing here allocates. Not locked: several threads may read a record that its writer has finished.
class ConstBitstream {
 public:
  /// The least bytes of a record: its header.
  static constexpr std::uint32_t m_uMinQMCIBitstreamSize = bitstream_layout::kHeaderSize;
  /// The longest header that a reader accepts from a peer.
  static constexpr std::uint32_t m_uMaxQMCIBitstreamSize = 100;

  ConstBitstream() = default;

  /// Looks at a record in a block of `uSize` bytes, which outlives the view. A block shorter than a header is
  /// a failed assertion, and the view then has no record. External packets aren't seen through such a view:
  /// their addresses are known to the object that added them.
  ConstBitstream(const QMCIBitstream* psRecord, std::uint32_t uSize) noexcept;

  const QMCIBitstream* getConstQMCIBitstreamPtr() const noexcept { return m_psConstCIStream; }

  // The header's fields; 0 without a record.
  std::uint64_t getTimestamp() const noexcept;
  std::uint16_t getPictureType() const noexcept;
  std::uint16_t getAccessFlags() const noexcept;
  std::uint32_t getFormat() const noexcept;
  std::uint32_t getVersion() const noexcept;
  std::uint32_t getFormatVersion() const noexcept;
  std::uint32_t getHeaderLength() const noexcept;
  std::uint64_t getFrameNumber() const noexcept;
  std::uint32_t getDecoderPipe() const noexcept;
  std::uint32_t getFrameExtra() const noexcept;

  /// Bytes of the block that the record may use: `dwAllocatedSize`, but never more than the block has. 0
  /// without a record.
  std::uint32_t getAllocatedSize() const noexcept;

  /// Elements of a packet or substream record; -1 for other formats (asserted), and for a count that the
  /// block has no room for.
  int getNbPackets() const noexcept;

  /// Element `i` of a packet record; an empty one when there is no such element or its bytes lie outside.
  Packet getPacket(int i) const noexcept;

  /// Element `i` of a substream record; an empty one when there is no such element or its bytes lie outside.
  Substream getSubstream(int i) const noexcept;

  /// Length of element `i` of a packet or substream record; 0 where `getPacket` or `getSubstream` refuses.
  std::uint32_t getPacketLength(int i) const noexcept;

  /// Bytes of element `i` of a packet or substream record, or null.
  const std::uint8_t* getPacketData(int i) const noexcept;

  /// Elements of the first run of packets of a group; 0 when the group has none, -1 for other formats.
  int getPacketCountInGroup(std::uint32_t dwGroup) const noexcept;

  /// Bytes that element `i` could have: for substreams up to the next one that has bytes or the end of the
  /// record, for a packet inside the record up to the next such one or the end, for a linear record what lies
  /// behind its header and two bytes more. -1 for all else, external packets included.
  std::int64_t getFreeSpace(int i) const noexcept;

  /// Fills `bufs` with all elements in order, and returns how many; -1, with `bufs` partly filled, when they
  /// are more than `bufs` holds, an element is refused or the format has no elements. The memory may be
  /// written through a `JIoBuf` only if it may be written otherwise.
  int getIoBufs(std::span<JIoBuf> bufs) const noexcept;

  /// The same for the first run of packets of one group of a packet record.
  int getIoBufs(std::span<JIoBuf> bufs, std::uint32_t dwGroup) const noexcept;

  /// The same for every `iStep`-th element from `iOff` on.
  int getIoBufs(std::span<JIoBuf> bufs, int iOff, int iStep) const noexcept;

  /// Whether an address lies outside the record; false for null.
  bool isDataExternal(const void* pBuf) const noexcept;

 protected:
  /// A packet that lies outside the record. The length is kept here as well, since the one in the record
  /// could be overwritten from outside.
  struct External {
    const std::uint8_t* pBuf = nullptr;
    std::uint32_t nLength = 0;
  };

  bool isPacketFormat() const noexcept;
  std::uint32_t elementAt(int i) const noexcept;
  std::uint32_t placeOf(int i) const noexcept;
  bool isInternal(int i) const noexcept;

  const QMCIBitstream* m_psConstCIStream = nullptr;
  std::uint32_t m_uBlockSize = 0;  ///< bytes that are really there
  std::span<const External> m_externals;

 private:
  bool hasTable(std::uint32_t dwFormat) const noexcept;
  std::optional<Substream> checkedSubstream(int i) const noexcept;
  std::int64_t freeSpaceOfSubstream(int i) const noexcept;
  std::int64_t freeSpaceOfPacket(int i) const noexcept;
  int fillIoBufs(std::span<JIoBuf> bufs, int iFirst, int iEnd, int iStep) const noexcept;
};

/// Read and write access to a record, which the object owns after `setMaxSize` and only looks at after
/// `attach`. One writer at a time.
///
/// A record is allocated once and used for frame after frame: nothing but `setMaxSize`, `splitGroup` and a
/// `setFormat` with more elements than ever before allocates.
class Bitstream : public ConstBitstream {
 public:
  Bitstream() = default;
  virtual ~Bitstream();
  Bitstream(const Bitstream&) = delete;
  Bitstream& operator=(const Bitstream&) = delete;

  /// Allocates a record with room for `uCount` table elements and `uSize` bytes of data; for QMCI_FMT_NONE
  /// `uSize` is the whole record, and for QMCI_FMT_CHUNK `uCount` is the caller's word. A record owned until
  /// now is freed first. Header and table are cleared; the data isn't.
  ///
  /// Throws JTextError: "unknwon format"; "allocated size smaller than header" for a QMCI_FMT_NONE below 48
  /// bytes and for a packet record without packets; "out of memory", also for a record of 2 GiB and above.
  /// The object then has no record.
  void setMaxSize(std::uint32_t uSize, std::uint32_t dwFormat, std::uint32_t uCount);

  /// Makes a block of the caller's the record, with a fresh QMCI_FMT_NONE header. A block below 48 bytes is a
  /// failed assertion: it is cleared, and the object has no record. The block outlives the object, or its
  /// next record.
  void attach(void* pBlock, std::uint32_t uAllocatedSize) noexcept;

  /// Hands the record to the caller and leaves the object without one. What `setMaxSize` allocated is freed
  /// with `delete[]`. External packets are lost to it: their addresses stay with the object.
  [[nodiscard]] QMCIBitstream* detach() noexcept;

  QMCIBitstream* getQMCIBitstreamPtr() const noexcept { return m_psCIStream; }

  // The header's fields. Without a record they are failed assertions.
  void setTimestamp(std::uint64_t ullTimeStamp) noexcept;
  void setPictureType(std::uint16_t wPictureType) noexcept;
  void setAccessFlags(std::uint16_t wAccessFlags) noexcept;
  void setVersion(std::uint32_t dwVersion) noexcept;
  void setFormatVersion(std::uint32_t dwFormatVersion) noexcept;
  void setHeaderLength(std::uint32_t dwHeaderLength) noexcept;
  void setFrameNumber(std::uint64_t ullFrameNumber) noexcept;
  void setDecoderPipe(std::uint32_t dwDecoderPipe) noexcept;
  void setFrameExtra(std::uint32_t dwFrameExtra) noexcept;

  /// Writes `dwAllocatedSize`, as a reader must after a header from a peer was put over this one. More than
  /// the block has is a failed assertion and changes nothing.
  void setAllocatedSize(std::uint32_t dwAllocatedSize) noexcept;

  /// Clears the header and makes it a fresh QMCI_FMT_NONE one with frame number 0xFFFFFFFF;
  /// `dwAllocatedSize` is kept.
  void reset() noexcept;

  /// Gives the record, of whatever format until now, another one with room for `uCount` table elements, and
  /// empties its table. False, with nothing but `dwFormat` changed, when the block is too small. Formats
  /// other than linear, substreams and packets change nothing else and give true. Throws JTextError "out of
  /// memory".
  bool setFormat(std::uint32_t dwFormat, std::uint32_t uCount);

  /// Takes over another record's header: as many bytes as its `dwHeaderLength` says but never more than 48,
  /// the rest cleared. Version and `dwAllocatedSize` stay this record's own, and a longer header becomes one
  /// of 48 bytes. False, and nothing changed, when a record is missing or this block is shorter than that
  /// header.
  bool copyHeader(const ConstBitstream& other) noexcept;

  /// Adds a packet that lies outside the record and stays the caller's until the packet is gone.
  bool addExternalPacket(const void* pBuf, std::uint32_t nLength, std::uint32_t dwGroup) noexcept;

  /// Makes element `iIdx` a packet that lies outside the record; its group stays.
  bool setPacket(const void* pBuf, std::uint32_t nLength, int iIdx) noexcept;

  /// Adds a packet inside the record and copies its bytes there; a null `pBuf` only reserves them. False when
  /// the data area lacks the room or the table is full.
  bool setPacketData(const void* pBuf, std::uint32_t nLength, std::uint32_t dwGroup) noexcept;

  /// Adds a packet that takes all the room left, for a reader to fill and then to cut with
  /// `setPacketLength`. A null element, and nothing changed, when there is no room.
  PacketSpace allocNextPacket() noexcept;

  /// Sets the length of a packet inside the record; a negative index means the last one. False for an index
  /// beyond the count, an external packet and a length above `getFreeSpace`.
  bool setPacketLength(std::uint32_t nLength, int iIdx) noexcept;

  /// Removes the last packet; false when there is none.
  bool popPacket() noexcept;

  /// Divides a packet record behind the first run of packets of a group: what follows moves into `rest`, with
  /// this record's header. Bytes inside the record are copied, external packets stay where they are. False,
  /// and nothing changed, when the group has no packets or nothing follows them. Throws what `setMaxSize`
  /// throws.
  bool splitGroup(std::uint32_t dwGroup, Bitstream& rest);

 private:
  void release() noexcept;
  int nextElement() const noexcept;
  std::int64_t roomAtCursor() const noexcept;
  void writeElement(int i, std::uint32_t uPlace, std::uint32_t nLength, std::uint32_t dwGroup) noexcept;
  void writeExternal(int i, const void* pBuf, std::uint32_t nLength, std::uint32_t dwGroup) noexcept;
  void setCursorBehindLastPacket(int nPackets) noexcept;
  void reserveExternals(std::uint32_t uCount);

  QMCIBitstream* m_psCIStream = nullptr;
  bool m_bOwner = false;
  std::uint32_t m_uCursor = 0;  ///< offset of the first free byte of the data area
  std::uint32_t m_dwAllocatedPacket = 0;
  std::vector<External> m_externalOfElement;  ///< one for each table element; the element's number is its own
};

}  // namespace qm_ci
