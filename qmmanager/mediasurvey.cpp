#include "qmmanager/mediasurvey.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "storage/AVIIO/AVIFileInfo.h"
#include "storage/FrameWalk.h"
#include "storage/filekinds.h"

namespace qm_manager {

namespace {

using qm_ci::StreamInfo;

const StreamInfo* infoOf(const FileInfo& fileInfo, std::uint32_t uStream) {
  return fileInfo.getStream(uStream)->getStreamInfo();
}

std::uint32_t chooseStream(const FileInfo& fileInfo) {
  using IsKind = bool (*)(const StreamInfo&);
  const IsKind kinds[] = {[](const StreamInfo& info) { return info.isVideo(); },
                          [](const StreamInfo& info) { return info.isAudio(); },
                          [](const StreamInfo& info) { return info.isData(); }};
  for (const IsKind isKind : kinds) {
    for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
      const StreamInfo* const pInfo = infoOf(fileInfo, uStream);
      if (pInfo != nullptr && isKind(*pInfo)) {
        return uStream;
      }
    }
  }
  QM_THROW(JTextError, "it has no stream that could be recorded");
}

std::optional<std::int32_t> rateOf(const StreamInfo& info) {
  if (!info.isVideo()) {
    return 0;
  }
  std::uint32_t uNumerator = 0;
  std::uint32_t uDenominator = 0;
  info.getRate(uNumerator, uDenominator);
  if (uNumerator == 0 || uDenominator == 0) {
    return std::nullopt;
  }
  const std::uint64_t uRounded = (std::uint64_t{uNumerator} + uDenominator / 2) / uDenominator;
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp<std::uint64_t>(uRounded, 1, kMost));
}

/// Whether a file that nobody has walked yet tells the dates of a stream's frames.
bool isDated(const FileInfo& fileInfo, std::uint32_t uStream) {
  switch (fileInfo.getTypeMagic()) {
    case file_kinds::kAsfMagic:
      return true;
    case file_kinds::kRiffMagic:
      return dynamic_cast<const AVIFileInfo&>(fileInfo).hasFrameBlocks(uStream);
    case file_kinds::kWaveMagic:
      return false;
    default:
      return fileInfo.getStream(uStream)->hasTimes();
  }
}

void noteOthers(const FileInfo& fileInfo, MediaSurvey& survey) {
  for (std::uint32_t uStream = 1; uStream <= fileInfo.getStreamCount(); ++uStream) {
    if (uStream != survey.uStream) {
      const StreamInfo* const pInfo = infoOf(fileInfo, uStream);
      const std::string_view sType = pInfo != nullptr ? pInfo->getMIMEType() : "of a kind unknown";
      survey.notes.push_back("stream " + std::to_string(uStream) + " (" + std::string(sType) +
                             ") isn't taken: only stream " + std::to_string(survey.uStream) + " is");
    }
  }
}

/// Takes the frames of the one stream into account, in order.
class FrameCount {
 public:
  explicit FrameCount(MediaSurvey& survey, const StreamInfo& info)
      : m_survey(survey), m_bPictures(info.isVideo()) {
    survey.bStartsAnywhere = info.isAudio();
  }

  void take(const FrameWalk& walk) {
    if (walk.getInput().isAuthentication()) {
      return;
    }
    const std::uint64_t ullTime = walk.getFrame().getTimestamp();
    if (m_uFrames == 0) {
      m_survey.ullBegin = ullTime;
    } else if (ullTime < m_survey.ullLast) {
      QM_THROW(JTextError, "its frame " + std::to_string(m_uFrames) +
                               " is dated earlier than the one in front of it; it can't be recorded");
    }
    if (walk.getInput().isKeyFrame() && walk.getSize() > 0 && !m_bKeyFrame) {
      m_bKeyFrame = true;
      m_survey.uLeading = m_uFrames;
      m_survey.ullFirst = ullTime;
    }
    m_survey.ullLast = ullTime;
    ++m_uFrames;
  }

  void finish() {
    if (m_uFrames == 0) {
      QM_THROW(JTextError, "it has no frames that could be recorded");
    }
    if (m_uFrames > 1 && m_survey.ullLast == m_survey.ullBegin) {
      QM_THROW(JTextError, "its frames have no times; it can't be recorded");
    }
    if (!m_bKeyFrame && m_bPictures) {
      QM_THROW(JTextError, "it has no key frame, at which a reader could start; it can't be recorded");
    }
    m_survey.bStartsAnywhere = m_survey.bStartsAnywhere || !m_bKeyFrame;
    if (m_survey.bStartsAnywhere) {
      m_survey.uLeading = 0;
      m_survey.ullFirst = m_survey.ullBegin;
    }
    m_survey.bDated = m_survey.bDated && m_survey.ullBegin != 0;
    if (m_survey.uLeading > 0) {
      m_survey.notes.push_back("the first " + std::to_string(m_survey.uLeading) +
                               " frames aren't taken: they stand in front of the first key frame");
    }
  }

 private:
  MediaSurvey& m_survey;
  const bool m_bPictures;
  bool m_bKeyFrame = false;
  std::uint64_t m_uFrames = 0;
};

}  // namespace

MediaSurvey surveyMedia(const std::string& sFile, const MediaProgress& progress) {
  FrameWalk walk(sFile, {});
  const FileInfo& fileInfo = walk.getFileInfo();
  MediaSurvey survey;
  survey.sFile = sFile;
  survey.uStream = chooseStream(fileInfo);
  const StreamInfo& info = *infoOf(fileInfo, survey.uStream);
  survey.fps = rateOf(info);
  survey.bDated = isDated(fileInfo, survey.uStream);
  noteOthers(fileInfo, survey);
  FrameCount count(survey, info);
  while (walk.pass()) {
    goOn(progress, 0, 0);
    if (walk.getStream() == survey.uStream) {
      count.take(walk);
    }
  }
  count.finish();
  survey.uBytes = walk.getBytes();
  return survey;
}

void goOn(const MediaProgress& progress, std::uint64_t uDone, std::uint64_t uAll) {
  if (progress && !progress(uDone, uAll)) {
    QM_THROW(JTextError, "interrupted");
  }
}

}  // namespace qm_manager
