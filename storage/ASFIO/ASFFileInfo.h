#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "coreapi/qmutils/time/jtime.h"
#include "storage/FileInfo.h"

/// The description of an ASF file.
class ASFFileInfo : public FileInfo {
 public:
  /// Whether the flags of key frames can be relied on.
  virtual bool hasValidKeyFrameFlag() const { return m_bValidKeyFrameFlag; }
  /// Whether frames tell when they are synthetic.
  virtual bool hasSyntheticFlag() const { return m_bSyntheticFlag; }
  /// Whether the file may hold frames that authenticate others.
  virtual bool hasAuthentication() const { return m_bSupportAuthentication; }
  virtual JTime getCreationDate() const { return m_creationDate; }

  /// Place of the first data unit in the file; 0 until it is known.
  std::uint64_t getDataStart() const noexcept { return m_qwDUStart; }
  void setDataStart(std::uint64_t qwDUStart) noexcept { m_qwDUStart = qwDUStart; }

  /// Whether the file is written in blocks, for direct I/O, and their size in bytes; 0 when it isn't.
  bool isIOAligned() const noexcept { return m_bIOAligned; }
  std::uint32_t getIOAlignBlockSize() const noexcept { return m_uIOAlignBlockSize; }

  /// The file's generation, see `asfkinds.h`.
  int getKind() const noexcept { return m_iKind; }

  /// The number by which data units of a file of kind 0 name a stream.
  std::uint16_t getUnitNumber(std::uint32_t uStream) const;

 protected:
  using FileInfo::FileInfo;

  std::unique_ptr<FileInput> makeInput(std::unique_ptr<JISocket> pSocket) override;

  std::uint64_t m_qwDUStart = 0;
  bool m_bIOAligned = false;
  std::uint32_t m_uIOAlignBlockSize = 0;
  int m_iKind = 2;
  std::vector<std::uint16_t> m_unitNumbers;  ///< of each stream, for kind 0
  JTime m_creationDate;
  bool m_bValidKeyFrameFlag = false;
  bool m_bSyntheticFlag = false;
  bool m_bSupportAuthentication = false;
};

/// The description of an ASF file that is being written.
class ASFFileInfoOut : public ASFFileInfo {
 public:
  /// Of a file that begins now. A block size other than 0 means direct I/O. The parameters that every file of
  /// this kind carries are set.
  ASFFileInfoOut(std::string sFileName, std::uint32_t uIOAlignBlockSize);

  bool hasValidKeyFrameFlag() const override { return true; }
  bool hasSyntheticFlag() const override { return true; }
  bool hasAuthentication() const override { return true; }
};
