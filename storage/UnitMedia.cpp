#include "storage/UnitMedia.h"

#include <cmath>
#include <string_view>

#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/streamdatainfo.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "storage/FileInfo.h"

namespace {

constexpr double kMicrosecondsPerMillisecond = 1000.0;

/// Whether a synthetic stream carries a plug-in's stream: some value of its description is such a type.
bool carriesPluginStream(const qm_ci::StreamInfo& stream) {
  const auto block = stream.getStreamDataInfo();
  if (!block) {
    return false;
  }
  const qm_ci::StreamDataInfo info(*block);
  const std::string_view sDescription = info.getDescription();
  for (std::size_t at = sDescription.find(qm_ci::kMimePluginStream); at != std::string_view::npos;
       at = sDescription.find(qm_ci::kMimePluginStream, at + 1)) {
    if (at == 0 || std::string_view("\"'> \t\r\n").find(sDescription[at - 1]) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

bool isAnalyticsStream(const qm_ci::StreamInfo& stream) {
  return stream.getMIMEType() == qm_ci::kMimePluginStream ||
         (stream.isSynthetic() && carriesPluginStream(stream));
}

/// A value that doesn't convert counts as missing: the file may be of any origin.
template <class Value>
void take(const JParams& params, std::string_view sName, Value& value) {
  try {
    params.get(sName, value);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
}

AnalyticsStream describe(const qm_ci::StreamInfo& stream) {
  JParams params;
  try {
    stream.getProperties(&params);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  }
  AnalyticsStream analytics;
  take(params, "processorName", analytics.processorName);
  take(params, "processorType", analytics.processorType);
  take(params, "processedSourceName", analytics.processedSourceName);
  take(params, "gridWidth", analytics.gridWidth);
  take(params, "gridHeight", analytics.gridHeight);
  return analytics;
}

}  // namespace

UnitMedia::UnitMedia(const FileInfo& fileInfo) {
  const FileStreamInfo* const pStream = fileInfo.getStream(1);
  const qm_ci::StreamInfo* const pStreamInfo = pStream != nullptr ? pStream->getStreamInfo() : nullptr;
  if (pStreamInfo == nullptr) {
    return;
  }
  sDataType = std::string(pStreamInfo->getMIMEType());
  uFramePeriod =
      static_cast<std::uint64_t>(std::ceil(pStreamInfo->getFramePeriod() * kMicrosecondsPerMillisecond));
  if (isAnalyticsStream(*pStreamInfo)) {
    analytics = describe(*pStreamInfo);
  }
}
