#include "qmmanager/copyhandlers.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "coreapi/qmci/mimetypes.h"
#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/qmtpkt.h"
#include "coreapi/qmstream/streamfactory.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpcserver.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "qmmanager/archive.h"
#include "qmmanager/copies.h"
#include "qmmanager/copydirectory.h"
#include "qmmanager/recordedframes.h"
#include "qmmanager/request.h"
#include "qmmanager/spantext.h"
#include "storage/ArchiveUnit.h"

namespace qm_manager {

namespace {

using qm_stream::StreamProtocol;

/// The longest span of one copy: 72 hours, which clients keep to as well.
constexpr std::uint64_t kMaxInterval = 259'200'000'000;

/// What the answer says by itself, whatever a recorded stream has among its parameters.
constexpr std::string_view kOwnKeys[] = {"Decimation",   "Error",        "ProtocolVersion", "StreamInfo",
                                         "authoringApp", "endTimeStamp", "startTimeStamp"};

constexpr const char* kDefaultAuthoringApp = "qmmanagerd " QM_VERSION;

/// What a request wants copied.
struct Wanted {
  Wanted(const Archive& archive, const Request& request)
      : sSource(request.getText("SourceName")),
        iFps(request.getInteger("Fps")),
        span(request.getSpan("TsBackupStartDate", "TsBackupEndDate")),
        bAuthentication(request.getFlag("WithAuthentication", true)),
        pUnit(archive.requireUnit(sSource, iFps)) {
    if (span.endDate.getMicroseconds() - span.startDate.getMicroseconds() > kMaxInterval) {
      QM_THROW(JTextError, "the span from " + textOf(span) + " is longer than 72 hours");
    }
  }

  [[noreturn]] void refuseEmpty() const {
    QM_THROW(JTextError, "nothing is recorded of \"" + sSource + "\" at the frame rate " +
                             std::to_string(iFps) + " from " + textOf(span));
  }

  /// The frames, standing at their first description.
  std::unique_ptr<RecordedFrames> open() const {
    auto pFrames = std::make_unique<RecordedFrames>(pUnit, span, bAuthentication);
    if (pFrames->next() != RecordedFrames::Next::kDescription) {
      if (pFrames->isCut()) {
        QM_THROW(JTextError, "the recording of \"" + sSource + "\" can't be read from " + textOf(span));
      }
      refuseEmpty();
    }
    return pFrames;
  }

  /// What of the span isn't hidden.
  TimeSpanList visible() const {
    TimeSpanList hidden = pUnit->getHiddenSpans();
    hidden.mergeGap(0);
    return TimeSpanList::subtract({span}, hidden);
  }

  const std::string sSource;
  const std::int32_t iFps;
  const TimeSpan span;
  const bool bAuthentication;
  const std::shared_ptr<ArchiveUnit> pUnit;
};

// The size.

void getRecordingSize(const Wanted& wanted, JParams& answer) {
  std::uint64_t uSize = 0;
  for (const TimeSpan& part : wanted.visible()) {
    uSize += wanted.pUnit->getSizeWithin(part);
  }
  if (uSize == 0) {
    wanted.refuseEmpty();
  }
  answer.add("Size", uSize);
}

// The description.

/// Whether the older form can carry it.
bool hasOlderForm(const qm_ci::StreamInfo& info) {
  const std::string_view sType = info.getMIMEType();
  return (info.getType() == qm_ci::StreamInfo::kVideo &&
          (sType == qm_ci::kMimeQmv1 || sType == qm_ci::kMimeQmv2)) ||
         (info.getType() == qm_ci::StreamInfo::kAudio &&
          (sType == qm_ci::kMimeQmPcmInternal || sType == qm_ci::kMimeQmMp3Internal));
}

/// Whether all files of the span are of one stream, as far as they can be read.
bool isUniform(const Wanted& wanted, const qm_ci::StreamInfo& info) {
  for (const Slice& slice : wanted.pUnit->getSlices(wanted.span)) {
    try {
      const FileInfo::Ptr pInfo = slice.getFileInfo();
      const FileStreamInfo* const pStream = pInfo != nullptr ? std::as_const(*pInfo).getStream(1) : nullptr;
      if (pStream != nullptr && pStream->getStreamInfo() != nullptr &&
          !isSameStream(info, describeForCopy(*pStream->getStreamInfo()))) {
        return false;
      }
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);  // the copy passes it over
    }
  }
  return true;
}

/// Throws unless the frames can be copied in the older protocol.
void requireOlderForm(const Wanted& wanted, const qm_ci::StreamInfo& info) {
  if (!hasOlderForm(info)) {
    QM_THROW(JTextError, "a recording of the type \"" + std::string(info.getMIMEType()) +
                             "\" can only be copied by clients that know the protocol QM_TPKT");
  }
  if (!isUniform(wanted, info)) {
    QM_THROW(JTextError, "the recording changes its form from " + textOf(wanted.span) +
                             ": it can be copied in parts, or by clients that know the protocol QM_TPKT");
  }
}

/// The date up to which something is recorded; the end of the span at the latest.
JTime recordedEnd(const Wanted& wanted) {
  JTime end = wanted.span.startDate;
  for (const TimeSpan& stored : wanted.pUnit->getStoredSpans(wanted.span)) {
    if (stored.startDate <= wanted.span.endDate) {
      end = std::max(end, std::min(stored.endDate, wanted.span.endDate));
    }
  }
  return end;
}

/// The properties of the copy, as strings.
JParams propertiesOf(const Wanted& wanted, const RecordedFrames& frames) {
  JParams properties;
  const JParams params = frames.getStreamParams();
  for (const std::string& sName : params.getNames()) {
    const JVariant::Type eType = params.find(sName)->getType();
    std::string sText;
    if (std::find(std::begin(kOwnKeys), std::end(kOwnKeys), sName) == std::end(kOwnKeys) &&
        eType != JVariant::T_BINARY && eType != JVariant::T_BLOB && eType != JVariant::T_EMPTY) {
      params.get(sName, sText);
      properties.add(sName, std::string_view(sText));
    }
  }
  properties.add("startTimeStamp", std::string_view(frames.getFrameDate().toUSFormat()));
  properties.add("endTimeStamp", std::string_view(recordedEnd(wanted).toUSFormat()));
  return properties;
}

std::string authoringAppOf(const RecordedFrames& frames) {
  const std::string sAuthoringApp = frames.getAuthoringApp();
  return sAuthoringApp.empty() ? kDefaultAuthoringApp : sAuthoringApp;
}

bool isServed(const StreamProtocol* pProtocol) {
  return pProtocol != nullptr && pProtocol->uKind == qm_stream::kPulledProtocol;
}

bool isNative(const StreamProtocol& protocol) {
  return std::string_view(protocol.szId) == qm_stream::kTpktProtocol;
}

void getStreamInfo(const Wanted& wanted, const Request& request, JParams& answer) {
  const std::string sOffered = request.getText("SupportedProtocols", qm_stream::kRemoteCopyProtocol);
  const StreamProtocol* const pProtocol = qm_stream::chooseProtocol(sOffered);
  if (!isServed(pProtocol)) {
    QM_THROW(JTextError, "none of the stream protocols \"" + sOffered + "\" is served");
  }
  const auto pFrames = wanted.open();
  answer.merge(propertiesOf(wanted, *pFrames));
  answer.add("authoringApp", std::string_view(authoringAppOf(*pFrames)));
  if (isNative(*pProtocol)) {
    answer.add("ProtocolVersion", pProtocol->szId);
  } else {
    requireOlderForm(wanted, pFrames->getDescription());
    pProtocol->writeStreamInfo(pFrames->getDescription(), answer);
  }
}

// Copies.

void remoteCopy(const Wanted& wanted, const Request& request, Copies& copies) {
  const std::string sProtocol = request.getText("ProtocolVersion", qm_stream::kRemoteCopyProtocol);
  const StreamProtocol* const pProtocol = qm_stream::findProtocol(sProtocol);
  if (!isServed(pProtocol)) {
    QM_THROW(JTextError, "the stream protocol \"" + sProtocol + "\" isn't served");
  }
  const std::int32_t iPort = request.getInteger("BackupPort");
  if (iPort < 1 || iPort > std::numeric_limits<std::uint16_t>::max()) {
    QM_THROW(JTextError, "the parameter \"BackupPort\" is no port");
  }
  auto pFrames = wanted.open();
  if (!isNative(*pProtocol)) {
    requireOlderForm(wanted, pFrames->getDescription());
  }
  JInetAddr client(*JRPCServer::getCurrentPeer());
  client.setPort(static_cast<std::uint16_t>(iPort));
  copies.push(std::move(pFrames), *pProtocol, client);
}

void localCopy(const Wanted& wanted, const std::string& sName, Copies& copies, CopyDirectory& directory) {
  const Copies::Place place(copies);
  const auto pFrames = wanted.open();
  directory.write(sName, *pFrames, propertiesOf(wanted, *pFrames), authoringAppOf(*pFrames), copies);
}

}  // namespace

void addCopyHandlers(Handlers& handlers, const Archive& archive, Copies& copies,
                     const std::string& sCopyDirectory) {
  handlers.emplace("rpc_getRecordingSize", [&archive](const Request& request, JParams& answer) {
    getRecordingSize(Wanted(archive, request), answer);
  });
  handlers.emplace("rpc_getStreamInfo", [&archive](const Request& request, JParams& answer) {
    getStreamInfo(Wanted(archive, request), request, answer);
  });
  handlers.emplace("rpc_remoteCopy", [&archive, &copies](const Request& request, JParams& /*answer*/) {
    remoteCopy(Wanted(archive, request), request, copies);
  });
  const auto pDirectory = std::make_shared<CopyDirectory>(sCopyDirectory);
  handlers.emplace("rpc_localCopy",
                   [&archive, &copies, pDirectory](const Request& request, JParams& /*answer*/) {
                     const std::string sName = request.getText("BackupPath");
                     pDirectory->check(sName);
                     localCopy(Wanted(archive, request), sName, copies, *pDirectory);
                   });
}

}  // namespace qm_manager
