// What a stream is told by in logs, and the comparison that logs two of them.
#include <algorithm>
#include <ostream>
#include <sstream>

#include "coreapi/qmci/audioinfonoxml.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmci/videoinfonoxml.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_ci {

namespace {

/// How much of two texts that differ is shown.
constexpr std::size_t kShownCharacters = 30;

const char* typeName(std::uint32_t uType) noexcept {
  switch (uType) {
    case StreamInfo::kVideo:
      return "Video";
    case StreamInfo::kAudio:
      return "Audio";
    case StreamInfo::kData:
      return "Data";
    default:
      return "Unknown";
  }
}

/// A rate as quotient and two digits of fraction, cut.
std::string rateText(std::uint64_t ullNumerator, std::uint64_t ullDenominator) {
  if (ullDenominator == 0) {
    return "0.00";
  }
  const std::uint64_t ullHundredths = ullNumerator % ullDenominator * 100 / ullDenominator;
  return std::to_string(ullNumerator / ullDenominator) + (ullHundredths < 10 ? ".0" : ".") +
         std::to_string(ullHundredths);
}

[[noreturn]] void throwParamsDifference(std::string_view sOne, std::string_view sOther) {
  const auto uDiffers = static_cast<std::size_t>(
      std::mismatch(sOne.begin(), sOne.end(), sOther.begin(), sOther.end()).first - sOne.begin());
  const std::string sShown(sOne.substr(uDiffers, kShownCharacters));
  const std::string sOtherShown(sOther.substr(uDiffers, kShownCharacters));
  QM_THROW(JTextError, "Incompatible stream: differing XML stream params [\"%s\" != \"%s\"]", sShown.c_str(),
           sOtherShown.c_str());
}

/// Throws what differs between two descriptions of a kind, whose views are `Record` and objects `Info`.
template <class Record, class Info>
void throwInfoDifference(std::span<const std::uint8_t> one, std::span<const std::uint8_t> other) {
  if (!Info(one).isSameStream(Info(other), false)) {
    QM_THROW(JTextError, "Incompatible stream: differing generic fields");
  }
  const std::string_view sOne = Record(one).getStreamParams();
  const std::string_view sOther = Record(other).getStreamParams();
  if (sOne != sOther) {
    throwParamsDifference(sOne, sOther);
  }
}

bool isSameData(const StreamDataInfo& one, const StreamDataInfo& other) noexcept {
  return one.getSize() == other.getSize() && one.getFPSNum() == other.getFPSNum() &&
         one.getFPSDen() == other.getFPSDen() && one.getFrameSize() == other.getFrameSize() &&
         one.getMIMEType() == other.getMIMEType() && one.getDescription() == other.getDescription();
}

std::string_view orEmpty(const char* szText) noexcept {
  return szText != nullptr ? szText : "";
}

}  // namespace

/// What stands before and behind the values of a listing.
struct StreamInfo::Labels {
  const char* szType;
  const char* szInfoSize;
  const char* szProperties;
  const char* szQuote;  ///< behind type and size
  const char* szFps;
  const char* szFpsNumerator;
  const char* szFpsDenominator;
  const char* szFrameSize;
  const char* szDataInfoSize;
  const char* szDataType;
  const char* szDescription;
  const char* szDataQuote;  ///< behind the texts of a data stream
};

void StreamInfo::toText(std::ostream& stream, std::string_view sSeparator) const {
  write(stream, sSeparator,
        {"type=", "infoSize=", "properties=\"", "",
         "fps=", "ledwFPSNum=", "ledwFPSDen=", "ledwFrameSize=", "ledwSize=", "type=", "description=", ""});
}

void StreamInfo::toDetailedText(std::ostream& stream, std::string_view sSeparator) const {
  write(stream, sSeparator,
        {"Type=\"", "InfoSize=\"", "Properties=\"", "\"", "Fps=", "FpsNumerator=", "FpsDenominator=",
         "MaxFrameSize=", "DataInfoSize=", "MIMEType=\"", "Description=\"", "\""});
}

void StreamInfo::write(std::ostream& stream, std::string_view sSeparator, const Labels& labels) const {
  // Made as one text first: a stream prints numbers as the host's locale wants them.
  std::string sText;
  const auto line = [&](const char* szLabel, std::string_view sValue, const char* szBehind) {
    sText.append(szLabel).append(sValue).append(szBehind).append(sSeparator);
  };
  const auto media = [&](const auto& info) {
    line("MIMEType=\"", info.getMIMEType(), "\"");
    line("XMLDescription=\"", info.getXML(), "\"");
    line("XMLStreamParams=\"", info.getStreamParams(), "\"");
  };
  line(labels.szType, typeName(getType()), labels.szQuote);
  line(labels.szInfoSize, std::to_string(getInfoSize()), labels.szQuote);
  if (getType() == kVideo) {
    media(QMVideoInfoNoXml(description()));
  } else if (getType() == kAudio) {
    media(QMAudioInfoNoXml(description()));
  } else if (isData()) {
    const StreamDataInfo info(description());
    line(labels.szFps, rateText(info.getFPSNum(), info.getFPSDen()), "");
    line(labels.szFpsNumerator, std::to_string(info.getFPSNum()), "");
    line(labels.szFpsDenominator, std::to_string(info.getFPSDen()), "");
    line(labels.szFrameSize, std::to_string(info.getFrameSize()), "");
    line(labels.szDataInfoSize, std::to_string(info.getSize()), "");
    line(labels.szDataType, info.getMIMEType(), labels.szDataQuote);
    line(labels.szDescription, info.getDescription(), labels.szDataQuote);
  }
  line(labels.szProperties, orEmpty(getProperties()), "\"");
  stream << sText;
}

void StreamInfo::throwDescriptionDifference(const StreamInfo& other) const {
  switch (getType()) {
    case kVideo:
      return throwInfoDifference<QMCIVideoInfo, QMVideoInfoNoXml>(description(), other.description());
    case kAudio:
      return throwInfoDifference<QMCIAudioInfo, QMAudioInfoNoXml>(description(), other.description());
    case kData:
      if (!isSameData(StreamDataInfo(description()), StreamDataInfo(other.description()))) {
        QM_THROW(JTextError, "Incompatible stream: differing data info");
      }
      return;
    default:
      return;
  }
}

void StreamInfo::throwDifference(const StreamInfo& other, bool bMimeOnly) const {
  if (getMIMEType() != other.getMIMEType()) {
    QM_THROW(JTextError, "Incompatible stream: differing MIME type [\"%s\" != \"%s\"]",
             std::string(getMIMEType()).c_str(), std::string(other.getMIMEType()).c_str());
  }
  if (bMimeOnly) {
    return;
  }
  if (getType() != other.getType()) {
    QM_THROW(JTextError, "Incompatible stream: differing type [%d != %d]", static_cast<int>(getType()),
             static_cast<int>(other.getType()));
  }
  throwDescriptionDifference(other);
  if (orEmpty(getProperties()) != orEmpty(other.getProperties())) {
    QM_THROW(JTextError, "Incompatible stream: differing on properties");
  }
}

void StreamInfo::checkCompatible(const StreamInfo* pOther, bool bMimeOnly) const {
  if (pOther == nullptr) {
    QM_THROW(JNullPointerError, "pOther");
  }
  try {
    throwDifference(*pOther, bMimeOnly);
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    std::ostringstream listing;
    listing << "Current stream:\r\n";
    toText(listing, "\r\n");
    listing << "\r\nOther stream:\r\n";
    pOther->toText(listing, "\r\n");
    listing << "\r\n";
    qm_err::logText(qm_err::kLogFullDebug, listing.str().c_str());
    error.rethrow();
  }
}

bool StreamInfo::isCompatible(const StreamInfo* pOther, bool bMimeOnly) const {
  try {
    checkCompatible(pOther, bMimeOnly);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError difference(pError);
    return false;
  }
}

}  // namespace qm_ci
