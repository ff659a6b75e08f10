#include <algorithm>
#include <memory>
#include <ostream>
#include <string>

#include "coreapi/qmutils/socket/jfilesocket.h"
#include "coreapi/qmutils/time/ntpdate.h"
#include "coreapi/qmxml/qmxml.h"
#include "storage/ASFIO/ASFFileInfo.h"
#include "storage/FileInfo.h"
#include "tools/qmctl/dates.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/filecommands.h"
#include "tools/qmctl/framereader.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/progress.h"

// The commands that mend a media file.

namespace qmctl {

namespace {

struct Arguments {
  std::string sFile;
  std::string sDate;
};

/// A description of a file, which nobody has open then.
FileInfo::Ptr describe(const std::string& sFile) {
  FileInfo::Ptr pFileInfo;
  onFile(sFile, [&] {
    JFileSocket socket(sFile, JFileSocket::kRead, true);
    pFileInfo = FileInfo::create(socket, sFile, false);
    if (!pFileInfo) {
      FrameWalk::refuseKind(sFile);
    }
  });
  return pFileInfo;
}

std::uint64_t framesOf(const FileInfo& fileInfo) {
  std::uint64_t uFrames = 0;
  for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
    uFrames += fileInfo.getStream(uStream)->getCount();
  }
  return uFrames;
}

/// A description tells how far it is by a run of stars and dots, which would outgrow a terminal's line: a dot
/// is 51 frames, a star 51 dots.
class RebuildProgress final : public FileProgress {
 public:
  explicit RebuildProgress(Context& context) : m_progress(context) {}

  void progress(const std::string& sText) override {
    const auto uStars = static_cast<std::uint64_t>(std::ranges::count(sText, '*'));
    m_progress.showText(std::to_string((uStars * 51 + sText.size() - uStars) * 51) + " frames");
  }

 private:
  Progress m_progress;
};

void report(Context& context, const char* szCommand, bool bChanged, const FileInfo& fileInfo,
            const std::string& sText) {
  if (context.settings.bJson) {
    writeJson(context.out, {{"command", szCommand}, {"changed", bChanged}, {"frames", framesOf(fileInfo)}});
  } else {
    context.out << sText << '\n';
  }
}

/// Why a kind of file can't get an index.
[[noreturn]] void refuseRebuild(const FileInfo& fileInfo) {
  const std::string sFormat = FrameWalk::formatOf(fileInfo);
  const std::string sFile = fileInfo.getFileName() + ": ";
  if (sFormat == "avi") {
    throw Failure(kFailed, sFile + "has no index, and the index of an AVI file can't be written anew");
  }
  if (sFormat == "wave") {
    throw Failure(kFailed, sFile + "was never finished, and the size in a WAVE file can't be written anew");
  }
  throw Failure(kFailed, sFile + "has no index, and none can be written into an MP3 file; it plays without");
}

void rebuild(Context& context, const std::string& sFile) {
  const QMXmlUse xml;
  const FileInfo::Ptr pFileInfo = describe(sFile);
  if (FrameWalk::isFinished(*pFileInfo)) {
    const bool bIndexed = std::string(FrameWalk::formatOf(*pFileInfo)) != "wave";
    report(context, "rebuild", false, *pFileInfo,
           bIndexed ? "the file has its index and its final header; nothing is to be done"
                    : "the file has its final header and needs no index; nothing is to be done");
    return;
  }
  if (FrameWalk::formatOf(*pFileInfo) != std::string("asf")) {
    refuseRebuild(*pFileInfo);
  }
  if (dynamic_cast<const ASFFileInfo&>(*pFileInfo).getKind() == 0) {
    throw Failure(kFailed,
                  sFile + ": is of the earliest kind, which can't get an index; its frames can be read");
  }
  {
    RebuildProgress progress(context);
    onFile(sFile, [&] { pFileInfo->rebuildIndex(true, &progress, JTime::lastQueryTime()); });
  }
  report(context, "rebuild", true, *pFileInfo,
         "index and header written, " + std::to_string(framesOf(*pFileInfo)) +
             " frames; the last one that was found is left out, for it may be cut short");
}

std::string dateText(JTime time) {
  std::string sText;
  qm_utils::formatNtpDate(time, sText);
  return sText;
}

/// Refuses what would change nothing, or leave nothing.
void checkCut(const FileInfo& fileInfo, JTime date) {
  const std::string sFile = fileInfo.getFileName() + ": ";
  if (FrameWalk::formatOf(fileInfo) != std::string("asf")) {
    throw Failure(kFailed, sFile + "only an ASF file can be cut");
  }
  if (!FrameWalk::isFinished(fileInfo)) {
    throw Failure(kFailed, sFile + "was never finished; 'qmctl file rebuild' first");
  }
  const FileStreamInfo* const pStream = fileInfo.getStream(1);
  if (pStream == nullptr || !pStream->hasTimes() || pStream->getCount() == 0) {
    throw Failure(kFailed, sFile + "its first stream has no index with times, so that it can't be cut");
  }
  const JTime last = pStream->getTimeByNumber(pStream->getCount() - 1);
  if (last < date) {
    throw Failure(kFailed, sFile + "nothing is to be cut: its last frame is of " + dateText(last));
  }
  if (pStream->getNumberAtOrBefore(date) <= 0) {
    throw Failure(kFailed, sFile + "nothing was cut: no more than its first frame, of " +
                               dateText(pStream->getTimeByNumber(0)) + ", would be left");
  }
}

void cut(Context& context, const Arguments& given) {
  const QMXmlUse xml;
  const JTime date = toTime(given.sDate);
  const FileInfo::Ptr pFileInfo = describe(given.sFile);
  checkCut(*pFileInfo, date);
  const std::uint32_t uBefore = pFileInfo->getStream(1)->getCount();
  onFile(given.sFile, [&] { pFileInfo->truncate(date); });
  const std::uint32_t uAfter = pFileInfo->getStream(1)->getCount();
  report(context, "cut", true, *pFileInfo,
         "stream 1 keeps " + std::to_string(uAfter) + " of " + std::to_string(uBefore) + " frames");
}

}  // namespace

void addMendCommands(CLI::App& file, Context& context) {
  const auto pGiven = std::make_shared<Arguments>();
  CLI::App& rebuilding =
      addCommand(file, "rebuild", "Gives an ASF file that its writer never finished its index and header",
                 "file rebuild clip.asf");
  addFileArgument(rebuilding, pGiven->sFile);
  rebuilding.callback(
      [&context, pGiven] { context.todo = [&context, pGiven] { rebuild(context, pGiven->sFile); }; });
  CLI::App& cutting =
      addCommand(file, "cut", "Cuts an ASF file off: the frame of a date and all later ones go",
                 "file cut clip.asf 2011-03-03T10:00:00Z");
  addFileArgument(cutting, pGiven->sFile);
  const auto isTime = [](const std::string& sDate) -> std::string {
    try {
      toTime(sDate);
      return {};
    } catch (const Failure& failure) {
      return failure.what();
    }
  };
  cutting.add_option("DATE", pGiven->sDate, "The date of the first frame that goes")
      ->required()
      ->check(CLI::Validator(isTime, "DATE"));
  cutting.callback([&context, pGiven] { context.todo = [&context, pGiven] { cut(context, *pGiven); }; });
}

}  // namespace qmctl
