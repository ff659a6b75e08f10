#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/socket/jdirectiosocket.h"
#include "storage/ASFIO/ASFFileInfo.h"
#include "storage/ASFIO/AsyncIONotifyBitstream.h"
#include "storage/ASFIO/asfheader.h"
#include "storage/FileOutput.h"

/// A stream that is written: what it is, and what is counted of it.
struct ASFStream {
  explicit ASFStream(const qm_ci::StreamInfo& info);

  std::uint64_t totalBytes = 0;   ///< of all data units
  std::uint64_t largestUnit = 0;  ///< bytes
  double framesPerSecond = 0.0;
  qm_ci::StreamInfo streamInfo;
  JParams params;
};

/// Writes the system's native file, laid out as `ASFIO/asfformat.h` tells: any number of streams of any kind,
/// an index of every stream at the end, and for sockets with an alignment everything in blocks.
///
/// Frames of stream 1 go out through the asynchronous form of the socket, head and payload as two buffers and
/// never copied; those of the others synchronously. Under direct I/O all units are put together in a buffer
/// that is aligned as the socket demands. A frame whose write fails is missing in the file and in the index,
/// and harms no other one.
///
/// The header that `start` writes says that the file isn't finished, and the destructor replaces it by one of
/// the same length: until then, and after a failure there, the file is one whose index can be built again.
class ASFOutput : public FileOutput {
 public:
  /// Throws JTextError "Unsupported direct i/o block size" for a socket whose alignment isn't a power of two
  /// from 8 to 32768.
  ASFOutput(std::unique_ptr<JSocket> pSocket, const std::string& sFileName);

  void start(const FileAttributes* pAttributes) override;
  JParams* getStreamParams(std::uint32_t uStreamNumber) override;
  ~ASFOutput() override;

  /// Bytes of all data units written, whatever fills up their blocks included.
  std::uint64_t getPosition() const override { return m_position; }

  /// Only before `start`, else JTextError.
  std::uint32_t addStream(const qm_ci::StreamInfo& streamInfo) override;

  /// Throws JTextError for a stream that doesn't exist.
  void writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime,
                  std::uint32_t uReserved) override;

  bool isIOAligned() const noexcept { return m_fileInfo.isIOAligned(); }
  std::uint32_t getIOAlignBlockSize() const noexcept { return m_fileInfo.getIOAlignBlockSize(); }

 private:
  friend class AsyncIONotifyBitstream;

  ASFOutput(std::unique_ptr<ASFFileInfoOut> pFileInfo, std::unique_ptr<JSocket>&& pSocket);

  void makeStreamRecords();
  void writeHeader(bool bFinal);
  void writeAsync(std::span<const JIoBuf> unit, std::uint64_t uUnitSize, std::uint32_t uStreamNumber,
                  const qm_ci::ConstBitstream& oCIBitstream, std::uint32_t uTime);
  void reserveAlignBuffer(std::size_t size);
  JIoBuf alignedUnit(std::span<const std::uint8_t> head, const JIoBuf& payload);
  std::uint64_t unitSizeInFile(std::uint64_t uUnitSize) const noexcept;
  void accountUnit(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                   std::uint32_t uTime, std::uint64_t uSize);

  // How an asynchronous write ended, told by its notify object, which then goes back to the pool.
  void unitWritten(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& header, std::uint32_t uTime,
                   std::uint64_t uSize);
  void unitLost() noexcept { m_writer.failed(); }
  void giveBack(AsyncIONotifyBitstream* pNotify) noexcept;

  void finish();
  void writeIndexes();
  void writeAlignedIndexes();
  void computeStatistics();
  AsfStreamStatistics statisticsOf(std::uint32_t uStreamNumber) const;

  ASFFileInfoOut& m_fileInfo;  ///< what `m_poFileInfo` points to
  std::vector<ASFStream> m_streams;
  std::uint32_t m_lastTime = 0;
  qm_utils::AlignedBuffer m_alignBuffer;  ///< whole blocks, as many as the largest unit so far takes
  std::size_t m_alignBufferSize = 0;
  std::uint64_t m_position = 0;
  AsfHeader m_header;
  AsfFileProperties m_properties;
  AsyncIONotifyPool m_pool;
};
