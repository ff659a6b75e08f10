#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/socket/jsocket.h"
#include "storage/FileAttributes.h"
#include "storage/FileInfo.h"
#include "storage/wholewriter.h"

/// The frame of all writers of media files: a writer turns frames, each with the number of its stream, into
/// one file, which goes to a socket: a plain file, one for direct I/O, the standard input of a child process.
///
/// The order of calls: `create`, fill `getParams`, `open` (or `addStream` for each stream and then `start`),
/// `writeBitstream` for each frame, delete. The destructor of the concrete class finishes the file, and logs
/// what goes wrong there: there is no separate close.
///
/// One writer is used by one thread. Its `FileInfo` may be read by others meanwhile.
class FileOutput {
 public:
  /// Makes the writer for a file type, in any letter case, which is what stands behind the last "." of
  /// `sType`: "asf" or "asfv2", "avi", "mp3", "wav". Null, and the socket closed, for any other. `sFileName`
  /// is only recorded. Throws what the writer's constructor throws.
  static std::unique_ptr<FileOutput> create(std::unique_ptr<JSocket> pSocket, std::string_view sType,
                                            const std::string& sFileName);

  FileOutput(const FileOutput&) = delete;
  FileOutput& operator=(const FileOutput&) = delete;

  /// Begins the file: streams and file-level parameters are complete. Null attributes leave the defaults.
  virtual void start(const FileAttributes* pAttributes);

  /// Adds a stream, unless null, with its parameters, unless null, and starts the file.
  virtual void open(const qm_ci::StreamInfo* pStreamInfo, const JParams* pParams,
                    const FileAttributes* pAttributes);

  /// Parameters of a stream, which go into the file at `start`; null where a writer keeps none.
  virtual JParams* getStreamParams(std::uint32_t uStreamNumber);

  /// Writes one frame, which must be a packet record of one packet. `uTime` is in the file's own time base;
  /// writers carry it into their statistics. `uReserved` is ignored. Throws what the socket throws; the file
  /// then ends behind the frame before, and the next one may be tried.
  virtual void writeBitstream(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                              std::uint32_t uTime, std::uint32_t uReserved);

  /// Closes the socket, and deletes the description unless it was detached.
  virtual ~FileOutput();

  /// Bytes of media written, for writers that keep the count; else 0.
  virtual std::uint64_t getPosition() const;

  /// Adds a stream before the start and returns its number, from 1. Throws JTextError for a stream that this
  /// kind of file can't hold.
  virtual std::uint32_t addStream(const qm_ci::StreamInfo& streamInfo) = 0;

  /// Writes one frame of the kind that `writeBitstream` has checked.
  virtual void writeFrame(std::uint32_t uStreamNumber, const qm_ci::ConstBitstream& oCIBitstream,
                          std::uint32_t uTime, std::uint32_t uReserved) = 0;

  /// File-level metadata, which goes into the file at its start or end.
  JParams& getParams() noexcept { return m_poFileInfo->getParams(); }

  /// The description as it stands.
  const FileInfo& getFileInfo() const noexcept { return *m_poFileInfo; }

  /// Where the destructor tells that it couldn't finish the file, by setting it; null, as at first, for
  /// nowhere. It outlives the writer.
  void tellUnfinished(bool* pbUnfinished) noexcept { m_pbUnfinished = pbUnfinished; }

  /// Hands the description over to the caller, who deletes it after the writer. It goes on growing until
  /// then.
  [[nodiscard]] FileInfo* detachFileInfo() noexcept;

 protected:
  FileOutput(std::unique_ptr<JSocket> pSocket, std::unique_ptr<FileInfo> pFileInfo);

  /// Whether a frame is counted: all but those that authenticate others.
  static bool isCounted(const qm_ci::ConstBitstream& oCIBitstream) noexcept;

  /// Counts a frame and puts it into the index: the stream's dates and count, the entry with its position.
  void account(std::uint32_t uStreamNumber, std::uint64_t uPosition,
               const qm_ci::ConstBitstream& oCIBitstream);

  /// The one packet of a frame as a buffer; an empty one when it has none.
  static JIoBuf payloadOf(const qm_ci::ConstBitstream& oCIBitstream) noexcept;

  /// Runs a step of a destructor. What it throws is logged, told and goes no further.
  template <typename Step>
  void finishing(Step step) const noexcept {
    try {
      step();
      return;
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);
      JCATCH_LOG(error.get());
    } catch (const std::exception& error) {
      qm_err::log(qm_err::kLogException, "%s", error.what());
    }
    if (m_pbUnfinished != nullptr) {
      *m_pbUnfinished = true;
    }
  }

  /// Throws JTextError when the file is started: its header has told of the streams.
  void checkNotStarted() const;

  /// Throws JTextError unless the file is started and has the stream.
  void checkStream(std::uint32_t uStreamNumber) const;

  std::unique_ptr<JSocket> m_poSocket;
  std::unique_ptr<FileInfo> m_poFileInfo;  ///< the caller's once it is detached
  bool m_bFileInfoDetached = false;
  bool* m_pbUnfinished = nullptr;  ///< the caller's
  bool m_bStarted = false;
  WholeWriter m_writer;  ///< writes to `m_poSocket`
};
