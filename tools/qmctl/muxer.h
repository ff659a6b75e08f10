#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/time/jtime.h"
#include "tools/qmctl/exportcodings.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace qmctl {

/// Writes frames into a file that players open, without coding them anew. The file grows under a work name
/// beside its own, OUT.exporting, and takes its own when it is whole and on the disk; a muxer that goes
/// before `finish` takes the work file with it, so that there is never half a file under the name.
///
/// All operations throw `Failure`. One thread.
class Muxer {
 public:
  /// The form of the file is told by the ending of its name; an ending that isn't one of .mkv .mp4 .avi .mp3
  /// .wav is wrong usage. Nothing is written before `start`.
  explicit Muxer(std::string sOut);
  ~Muxer();
  Muxer(const Muxer&) = delete;
  Muxer& operator=(const Muxer&) = delete;

  /// Whether the file can hold a stream of a coding.
  bool takes(const AVCodecParameters& coding) const;

  /// The ending of the file's name.
  const std::string& getEnding() const noexcept { return m_sEnding; }

  /// Whether the file tells of each picture when it is shown, and not only in which order it is decoded.
  bool tellsWhenShown() const noexcept { return m_sEnding == ".mkv" || m_sEnding == ".mp4"; }

  /// Adds a stream with frames of a period of `uPeriodNumerator` / `uPeriodDenominator` seconds, either 0
  /// when it isn't known. Returns its number from 0.
  std::size_t addStream(const AVCodecParameters& coding, std::uint64_t uPeriodNumerator,
                        std::uint64_t uPeriodDenominator);

  /// Makes the work file and writes the header. `date` is when the recording begins. With `bHeaderGiven` the
  /// first frame is the header that MPEG audio may have, so that none is made.
  void start(JTime date, bool bHeaderGiven);

  /// Writes a frame, `ullTime` microseconds behind the beginning. A time that isn't behind that of the frame
  /// before is moved on by as little as the file can tell.
  void write(std::size_t uStream, std::span<const std::uint8_t> payload, std::uint64_t ullTime,
             bool bKeyFrame);

  /// Ends the file and gives it its name.
  void finish();

 private:
  struct FreeContext {
    void operator()(AVFormatContext* pContext) const { avformat_free_context(pContext); }
  };
  struct FreePacket {
    void operator()(AVPacket* pPacket) const { av_packet_free(&pPacket); }
  };
  struct FreeIo {
    void operator()(AVIOContext* pIo) const;
  };

  /// What is kept of a stream.
  struct Stream {
    AVStream* pStream;
    std::int64_t iPeriod;  ///< microseconds, 0 for not known
    std::int64_t iLast;    ///< time of the last frame in the stream's time base
  };

  static int writeBytes(void* pMuxer, std::uint8_t* pBytes, int iSize);
  static std::int64_t seek(void* pMuxer, std::int64_t iOffset, int iWhence);

  void openWorkFile();
  void openIo();
  std::int64_t durationOf(const Stream& stream, std::size_t uSize) const;
  void check(int iResult, const char* szWhat) const;

  std::string m_sOut;
  std::string m_sEnding;
  std::string m_sWork;   ///< empty without a work file
  std::string m_sFault;  ///< what kept bytes from being written
  std::unique_ptr<JFileSocket> m_pFile;
  std::unique_ptr<AVIOContext, FreeIo> m_pIo;
  std::unique_ptr<AVFormatContext, FreeContext> m_pContext;
  std::unique_ptr<AVPacket, FreePacket> m_pPacket;
  std::vector<Stream> m_streams;
};

}  // namespace qmctl
