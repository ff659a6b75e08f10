#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmci/qmcibitstream.h"
#include "tools/qmctl/commandline.h"
#include "tools/qmctl/exportcodings.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/framereader.h"
#include "tools/qmctl/interrupt.h"
#include "tools/qmctl/muxer.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/progress.h"
#include "tools/qmctl/text.h"

extern "C" {
#include <libavcodec/codec_desc.h>
}

namespace qmctl {

namespace {

struct Arguments {
  std::string sFile;
  std::string sOut;
};

/// A stream of the file that is exported.
struct Exported {
  CodingPtr pCoding;                     ///< null for a stream that is left out
  std::unique_ptr<PictureOrder> pOrder;  ///< of pictures, where their order matters
  std::size_t uOut = 0;
  std::uint64_t uFrames = 0;
};

/// Whether a frame of MPEG audio is no sound but the header that some writers put in front, which tells the
/// length of the sound. It belongs into a file of MPEG audio alone.
bool isMp3Header(std::span<const std::uint8_t> frame) {
  constexpr std::size_t kSearched = 40;  // header and side information of every version
  const std::string_view sFront(reinterpret_cast<const char*>(frame.data()),
                                std::min(frame.size(), kSearched));
  return sFront.find("Xing") != std::string_view::npos || sFront.find("Info") != std::string_view::npos;
}

/// What takes more codings than a file of an ending.
const char* otherEnding(const std::string& sEnding) {
  return sEnding == ".mkv" ? "; try .avi" : "; try .mkv";
}

class Export {
 public:
  Export(Context& context, const Arguments& given)
      : m_context(context), m_given(given), m_muxer(given.sOut), m_reader(given.sFile, context.error) {}

  void run() {
    const Interrupt interrupt;
    if (!FrameWalk::isFinished(m_reader.getFileInfo()) &&
        FrameWalk::formatOf(m_reader.getFileInfo()) != std::string("mp3")) {
      m_context.error << "qmctl: " << printable(m_given.sFile)
                      << ": its writer didn't come to its end, or the end was cut off; what there is of it "
                         "is exported\n";
    }
    chooseStreams();
    {
      Progress progress(m_context);
      while (m_reader.next()) {
        interrupt.check();
        take();
        progress.showPart(m_reader.getBytesRead(), m_reader.getFileInfo().getDataSize());
      }
      if (!m_bStarted) {
        throw Failure(kFailed, m_given.sFile + ": has no frames that could be exported");
      }
      interrupt.check();
      m_muxer.finish();
    }
    report();
  }

 private:
  void chooseStreams() {
    FileInfo& fileInfo = m_reader.getFileInfo();
    bool bAny = false;
    for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
      m_streams.emplace_back();
      const qm_ci::StreamInfo* const pStreamInfo = fileInfo.getStream(uStream)->getStreamInfo();
      if (pStreamInfo == nullptr || (!pStreamInfo->isVideo() && !pStreamInfo->isAudio())) {
        m_context.error << "qmctl: stream " << uStream << " is neither picture nor sound and is left out\n";
        continue;
      }
      addStream(uStream, *pStreamInfo);
      bAny = true;
    }
    if (!bAny) {
      throw Failure(kFailed, m_given.sFile + ": has no stream that could be exported");
    }
  }

  /// What can't go into the file is refused: an export without its pictures or its sound isn't one.
  void addStream(std::uint32_t uStream, const qm_ci::StreamInfo& streamInfo) {
    const std::string sStream = m_given.sFile + ": stream " + std::to_string(uStream) + " is coded as '" +
                                std::string(streamInfo.getMIMEType()) + "'";
    CodingPtr pCoding = codingOf(streamInfo);
    if (!pCoding) {
      throw Failure(kFailed, sStream + ", which no common player knows; it can't be exported");
    }
    if (pCoding->codec_id == AV_CODEC_ID_RAWVIDEO &&
        FrameWalk::formatOf(m_reader.getFileInfo()) == std::string("asf")) {
      throw Failure(kFailed, sStream +
                                 ", and an ASF file doesn't tell whether the top line of such pictures "
                                 "comes first or last; it can't be exported");
    }
    if (!m_muxer.takes(*pCoding) || (isSingle() && m_uTaken > 0)) {
      throw Failure(kFailed,
                    sStream + " (" + avcodec_get_name(pCoding->codec_id) + "), which " +
                        (isSingle() && m_uTaken > 0 ? "can't be a second stream of " : "can't go into ") +
                        m_muxer.getEnding() + " files" + otherEnding(m_muxer.getEnding()));
    }
    if (pCoding->extradata_size == 0 && hasHeaderInFrames(*pCoding)) {
      findHeader(uStream, *pCoding);
    }
    const FramePeriod period = m_reader.getFileInfo().getStream(uStream)->getPeriod();
    const bool bKnown = period != FramePeriod();
    constexpr std::uint64_t kMillisecondsPerSecond = 1000;
    Exported& exported = m_streams.back();
    exported.uOut = m_muxer.addStream(*pCoding, bKnown ? period.uNumerator : 0,
                                      std::uint64_t{period.uDenominator} * kMillisecondsPerSecond);
    if (pCoding->codec_type == AVMEDIA_TYPE_VIDEO && m_muxer.tellsWhenShown()) {
      exported.pOrder = std::make_unique<PictureOrder>(*pCoding);
    }
    exported.pCoding = std::move(pCoding);
    ++m_uTaken;
  }

  bool isSingle() const { return m_muxer.getEnding() == ".mp3" || m_muxer.getEnding() == ".wav"; }

  /// A header must stand in the file before its first frame, so that it is looked for on a way of its own.
  void findHeader(std::uint32_t uStream, AVCodecParameters& coding) {
    FrameReader reader(m_given.sFile, m_context.error);
    while (reader.next()) {
      if (reader.getStream() == uStream && reader.getInput().isKeyFrame() && !reader.getPayload().empty()) {
        takeHeader(coding, reader.getPayload());
        return;
      }
    }
  }

  /// When the recording begins: the first date of its streams, as far as the file knows them.
  std::uint64_t beginning(std::uint64_t ullFirstFrame) const {
    std::uint64_t ullBegin = ullFirstFrame;
    const FileInfo& fileInfo = m_reader.getFileInfo();
    for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
      const FileStreamInfo& stream = *fileInfo.getStream(uStream);
      if (m_streams[uStream - 1].pCoding && stream.getCount() > 0 && stream.hasTimes()) {
        ullBegin = std::min(ullBegin, stream.getTimeByNumber(0).getMicroseconds());
      }
    }
    return ullBegin;
  }

  void take() {
    const std::uint32_t uStream = m_reader.getStream();
    Exported& stream = m_streams.at(uStream - 1);
    const auto payload = m_reader.getPayload();
    if (!stream.pCoding || payload.empty() || qm_ci::isServiceFrame(m_reader.getFrame().getPictureType())) {
      return;
    }
    const bool bHeader =
        stream.uFrames == 0 && stream.pCoding->codec_id == AV_CODEC_ID_MP3 && isMp3Header(payload);
    if (bHeader && m_muxer.getEnding() != ".mp3") {
      return;
    }
    if (stream.pOrder && stream.pOrder->isMovedForward(payload)) {
      throw Failure(kFailed, m_given.sFile + ": the pictures of stream " + std::to_string(uStream) +
                                 " are shown in another order than they are stored in, and the file doesn't "
                                 "tell when; try .avi, which takes them as they are");
    }
    const std::uint64_t ullTime = m_reader.getFrame().getTimestamp();
    if (!m_bStarted) {
      m_ullBegin = beginning(ullTime);
      m_muxer.start(JTime::fromMicroseconds(m_ullBegin), bHeader);
      m_bStarted = true;
    }
    m_muxer.write(stream.uOut, payload, ullTime - std::min(ullTime, m_ullBegin),
                  m_reader.getInput().isKeyFrame());
    ++stream.uFrames;
  }

  void report() {
    Json streams = Json::array();
    Table table(m_context.out, {"STREAM", "CODING", "FRAMES"});
    for (std::size_t i = 0; i < m_streams.size(); ++i) {
      if (m_streams[i].pCoding) {
        const char* const szCoding = avcodec_get_name(m_streams[i].pCoding->codec_id);
        streams.push_back({{"stream", i + 1}, {"coding", szCoding}, {"frames", m_streams[i].uFrames}});
        table.add({std::to_string(i + 1), szCoding, std::to_string(m_streams[i].uFrames)});
      }
    }
    if (m_context.settings.bJson) {
      writeJson(m_context.out, {{"file", m_given.sOut}, {"streams", streams}});
    } else {
      table.finish();
    }
  }

  Context& m_context;
  const Arguments& m_given;
  Muxer m_muxer;
  FrameReader m_reader;
  std::vector<Exported> m_streams;  ///< stream number n is element n - 1
  std::size_t m_uTaken = 0;         ///< of them
  std::uint64_t m_ullBegin = 0;
  bool m_bStarted = false;
};

void runExport(Context& context, const Arguments& given) {
  std::error_code error;
  if (std::filesystem::equivalent(given.sFile, given.sOut, error)) {
    throw Failure(kWrongUsage, "'" + given.sOut + "' is the file itself");
  }
  if (std::filesystem::is_directory(given.sOut, error)) {
    throw Failure(kWrongUsage, "'" + given.sOut + "' is a directory");
  }
  Export(context, given).run();
}

}  // namespace

void addExportCommand(CLI::App& app, Context& context) {
  CLI::App& command =
      addCommand(app, "export", "Writes a media file that any player opens, without coding it anew",
                 "export clip.asf clip.mkv");
  const auto pGiven = std::make_shared<Arguments>();
  command.add_option("FILE", pGiven->sFile, "A media file: ASF, AVI, WAVE or MP3")->required();
  command.add_option("OUT", pGiven->sOut, "The file to write: .mkv, .mp4, .avi, .mp3 or .wav")->required();
  command.callback(
      [&context, pGiven] { context.todo = [&context, pGiven] { runExport(context, *pGiven); }; });
}

}  // namespace qmctl
