#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "coreapi/qmci/fourcc.h"

/// The record of one coded picture, audio block or data block: a header, a table that depends on the format,
/// and the payload. A record is a block of bytes, handled by the address of its first one; fields are read
/// and written at the offsets below, and nothing casts a record to a struct.
///
/// Header, 48 bytes, little-endian in memory:
///
///     offset  size  field
///          0     8  ullTimeStamp      presentation time, microseconds
///          8     2  wPictureType      kind of frame and a small counter
///         10     2  wAccessFlags      access level
///         12     4  dwFormat          one of QMCI_FMT_...
///         16     4  dwVersion         0x10000
///         20     4  dwFormatVersion   1 when fresh, 0x10000 once setFormat chose substreams or linear
///         24     4  dwAllocatedSize   bytes of the whole block; means something in this process only
///         28     4  dwHeaderLength    bytes before the table
///         32     8  ullFrameNumber    frame counter of the stream
///         40     4  dwDecoderPipe     pictures in the decoder's pipe when the time was taken
///         44     4  dwFrameExtra      word that goes with the frame; files keep its low 8 bits
///
/// Behind the header, for n table elements:
///
///     QMCI_FMT_PACKET     48 dwNumPackets, 52 zero, 56 asPacket[n] of 12 bytes; data from (3n + 15) * 4
///     QMCI_FMT_SUBSTREAM  48 number of substreams, 52 zero, 56 asSubstreams[n] of 8 bytes; data from 56 + 8n
///     QMCI_FMT_LINEAR     48 length word; data from 52
///     QMCI_FMT_CHUNK      48 zero, 52 zero, 56 the caller's word; data from 60
///     QMCI_FMT_NONE       nothing: the rest is the caller's
///
/// The table stands at 48 whatever `dwHeaderLength` says: that word can come from a peer, whose header may be
/// longer than the part that is kept here.
///
/// Element of `asPacket`: place, length, group id, 32 bits each. An address doesn't fit the place on 64-bit
/// machines, so that a place below `kExternalPlace` is an offset from the start of the record, and one from
/// there on is `kExternalPlace` plus a number in the list of external buffers of the object that holds the
/// record. Element of `asSubstreams`: offset from the start of the record, length.
using QMCIBitstream = std::uint8_t;

namespace qm_ci {

namespace bitstream_layout {

inline constexpr std::uint32_t kTimeStamp = 0;
inline constexpr std::uint32_t kPictureType = 8;
inline constexpr std::uint32_t kAccessFlags = 10;
inline constexpr std::uint32_t kFormat = 12;
inline constexpr std::uint32_t kVersion = 16;
inline constexpr std::uint32_t kFormatVersion = 20;
inline constexpr std::uint32_t kAllocatedSize = 24;
inline constexpr std::uint32_t kHeaderLength = 28;
inline constexpr std::uint32_t kFrameNumber = 32;
inline constexpr std::uint32_t kDecoderPipe = 40;
inline constexpr std::uint32_t kFrameExtra = 44;
inline constexpr std::uint32_t kHeaderSize = 48;

inline constexpr std::uint32_t kCount = 48;
inline constexpr std::uint32_t kReserved = 52;
inline constexpr std::uint32_t kElements = 56;
inline constexpr std::uint32_t kPacketElementSize = 12;
inline constexpr std::uint32_t kSubstreamElementSize = 8;
inline constexpr std::uint32_t kLinearData = 52;
inline constexpr std::uint32_t kChunkParameter = 56;
inline constexpr std::uint32_t kChunkData = 60;

/// Places in `asPacket` from here on are numbers of external buffers; a block is always smaller.
inline constexpr std::uint32_t kExternalPlace = 0x80000000;

/// Header size of a packet record with `n` packets, which is where its data area starts.
constexpr std::uint64_t packetData(std::uint64_t n) noexcept {
  return (3 * n + 15) * 4;
}

/// Where the data of a record with `n` substreams starts.
constexpr std::uint64_t substreamData(std::uint64_t n) noexcept {
  return kElements + kSubstreamElementSize * n;
}

}  // namespace bitstream_layout

/// `dwVersion` of the records that this code writes; it reads those that differ in the low 16 bits only.
inline constexpr std::uint32_t kBitstreamVersion = 0x10000;

/// Formats of a record. Never renumber: they cross wires.
inline constexpr std::uint32_t QMCI_FMT_PACKET = fourcc("PKT_");
inline constexpr std::uint32_t QMCI_FMT_SUBSTREAM = fourcc("subs");
inline constexpr std::uint32_t QMCI_FMT_LINEAR = fourcc("linp");
inline constexpr std::uint32_t QMCI_FMT_CHUNK = fourcc("chnk");
inline constexpr std::uint32_t QMCI_FMT_NONE = fourcc("NON_");

/// Kinds of frame, bits 0 to 3 of `wPictureType`. Never renumber. The kinds 1 to 4 and 7 to 9 are known by
/// their letter only.
inline constexpr std::uint16_t kFrameKindMask = 0x000F;
inline constexpr std::uint16_t kFrameKindStreamInfo = 5;      ///< the payload describes the stream
inline constexpr std::uint16_t kFrameKindAuthentication = 6;  ///< the payload proves where the stream is from

/// Bits of `wAccessFlags`. Decoding can start at a frame that has both of the low ones.
inline constexpr std::uint16_t kAccessBit0 = 0x0001;
inline constexpr std::uint16_t kAccessBit1 = 0x0002;
inline constexpr std::uint16_t kAccessBit3 = 0x0008;

constexpr std::uint16_t getFrameKind(std::uint16_t wPictureType) noexcept {
  return wPictureType & kFrameKindMask;
}

/// `wPictureType` with another kind of frame; its other bits stay.
constexpr std::uint16_t withFrameKind(std::uint16_t wPictureType, std::uint16_t wKind) noexcept {
  return static_cast<std::uint16_t>((wPictureType & ~kFrameKindMask) | (wKind & kFrameKindMask));
}

/// Whether the word holds a frame at all: any kind but 0.
constexpr bool isFrame(std::uint16_t wPictureType) noexcept {
  return getFrameKind(wPictureType) != 0;
}

/// Whether the frame tells about the stream (kinds 5 and 6).
constexpr bool isServiceFrame(std::uint16_t wPictureType) noexcept {
  const std::uint16_t wKind = getFrameKind(wPictureType);
  return wKind == kFrameKindStreamInfo || wKind == kFrameKindAuthentication;
}

/// Whether the frame is part of the stream: every kind but 0, 5 and 6.
constexpr bool isMediaFrame(std::uint16_t wPictureType) noexcept {
  return isFrame(wPictureType) && !isServiceFrame(wPictureType);
}

/// Whether two words hold the same kind of frame.
constexpr bool isSameFrameKind(std::uint16_t wOne, std::uint16_t wOther) noexcept {
  return getFrameKind(wOne) == getFrameKind(wOther);
}

/// The two-bit counter in bits 5 and 6 of `wPictureType`.
constexpr unsigned getPictureCounter(std::uint16_t wPictureType) noexcept {
  return (wPictureType >> 5) & 3U;
}

constexpr std::uint16_t withPictureCounter(std::uint16_t wPictureType, unsigned uCounter) noexcept {
  return static_cast<std::uint16_t>((wPictureType & 0xFF9F) | ((uCounter & 3U) << 5));
}

/// The word with its counter one further; 3 is followed by 0.
constexpr std::uint16_t withNextPictureCounter(std::uint16_t wPictureType) noexcept {
  return withPictureCounter(wPictureType, getPictureCounter(wPictureType) + 1);
}

/// The letter of the kind of frame; the empty text for kinds without one.
std::string pictureTypeToString(std::uint16_t wPictureType);

/// Whether decoding can start at a frame with these flags.
constexpr bool isAccessPoint(std::uint16_t wAccessFlags) noexcept {
  return (wAccessFlags & 3) >= 3;
}

/// Puts the 48 bytes of a header into network order, in place. False, and nothing changed, when `dwVersion`
/// is of another major version; a later minor one becomes 0x10000. `dwAllocatedSize` stays in local order,
/// the table and the payload are untouched.
///
/// The record must have 48 bytes.
bool hton(QMCIBitstream* psRecord) noexcept;

/// Puts a header in network order into local order, in place; the rest is as for `hton`. `dwAllocatedSize` is
/// then whatever the peer sent: the reader writes its own block's size there
/// (`Bitstream::setAllocatedSize`).
bool ntoh(QMCIBitstream* psRecord) noexcept;

}  // namespace qm_ci
