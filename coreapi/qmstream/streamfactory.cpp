#include "coreapi/qmstream/streamfactory.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/qmrcpy30.h"
#include "coreapi/qmstream/qmtpkt.h"
#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"

namespace qm_stream {

namespace {

constexpr const char* kSupportedProtocols = "SupportedProtocols";
constexpr const char* kSeparators = ", \t";

using Output = std::unique_ptr<JOSocket>;
using Input = std::unique_ptr<JISocket>;
using FrameOutput = std::unique_ptr<OFrameSocket>;
using FrameInput = std::unique_ptr<IFrameSocket>;

FrameOutput createOTPKT(Output pInner, const std::string& /*sParams*/) {
  return std::make_unique<OTPKTSocket>(std::move(pInner));
}

FrameInput createITPKT(Input pInner, JRPCController* /*pController*/, const std::string& /*sParams*/,
                       std::uint32_t* pTraceMask, const std::string& /*sName*/) {
  return std::make_unique<ITPKTSocket>(std::move(pInner), pTraceMask);
}

FrameOutput createORCPY(Output pInner, const std::string& /*sParams*/) {
  return createORCPYSocket30(std::move(pInner));
}

FrameInput createIRCPY(Input pInner, JRPCController* /*pController*/, const std::string& /*sParams*/,
                       std::uint32_t* pTraceMask, const std::string& /*sName*/) {
  return createIRCPYSocket30(std::move(pInner), pTraceMask);
}

// The datagram protocols are known by name, so that a peer that speaks them is understood and refused.

FrameOutput refuseOutput(Output /*pInner*/, const std::string& /*sParams*/) {
  QM_THROW(JUnimplementedError);
}

FrameInput refuseInput(Input /*pInner*/, JRPCController* /*pController*/, const std::string& /*sParams*/,
                       std::uint32_t* /*pTraceMask*/, const std::string& /*sName*/) {
  QM_THROW(JUnimplementedError);
}

/// The best protocol stands first.
constexpr StreamProtocol kProtocols[] = {
    {kTpktProtocol, kPulledProtocol, createOTPKT, createITPKT, qm_ci::writeStreamInfo, qm_ci::readStreamInfo},
    {kRemoteCopyProtocol, kPulledProtocol, createORCPY, createIRCPY, qm_ci::writeStreamInfoR30,
     qm_ci::readStreamInfoR30},
    {"QM_SP40", kOtherProtocol, refuseOutput, refuseInput, qm_ci::writeStreamInfo, qm_ci::readStreamInfo},
    {"QM_SP30", kOtherProtocol, refuseOutput, refuseInput, qm_ci::writeStreamInfoR30,
     qm_ci::readStreamInfoR30},
    {"QM_22SP6", kOtherProtocol, refuseOutput, refuseInput, qm_ci::writeStreamInfoR30,
     qm_ci::readStreamInfoR30},
};

void list(std::vector<std::string>& ids, std::optional<std::uint32_t> oKind) {
  for (const StreamProtocol& protocol : kProtocols) {
    if (!oKind || protocol.uKind == *oKind) {
      ids.emplace_back(protocol.szId);
    }
  }
}

std::size_t text(std::string& sText, std::optional<std::uint32_t> oKind) {
  std::vector<std::string> ids;
  list(ids, oKind);
  sText.clear();
  for (const std::string& sId : ids) {
    sText += sText.empty() ? sId : ',' + sId;
  }
  return ids.size();
}

bool addSupported(JParams& params, std::optional<std::uint32_t> oKind) {
  std::string sText;
  if (text(sText, oKind) == 0) {
    return false;
  }
  params.add(kSupportedProtocols, std::string_view(sText));
  return true;
}

/// The ids that a text lists.
std::vector<std::string_view> split(std::string_view sText) {
  std::vector<std::string_view> ids;
  for (std::size_t uStart = sText.find_first_not_of(kSeparators); uStart != std::string_view::npos;
       uStart = sText.find_first_not_of(kSeparators, uStart)) {
    const std::size_t uEnd = std::min(sText.find_first_of(kSeparators, uStart), sText.size());
    ids.push_back(sText.substr(uStart, uEnd - uStart));
    uStart = uEnd;
  }
  return ids;
}

}  // namespace

const StreamProtocol* findProtocol(std::string_view sId) noexcept {
  const auto* const pRow = std::find_if(std::begin(kProtocols), std::end(kProtocols),
                                        [sId](const StreamProtocol& row) { return sId == row.szId; });
  return pRow != std::end(kProtocols) ? pRow : nullptr;
}

void listProtocols(std::vector<std::string>& ids) {
  list(ids, std::nullopt);
}

void listProtocols(std::vector<std::string>& ids, std::uint32_t uKind) {
  list(ids, uKind);
}

std::size_t protocolText(std::string& sText) {
  return text(sText, std::nullopt);
}

std::size_t protocolText(std::string& sText, std::uint32_t uKind) {
  return text(sText, uKind);
}

bool addSupportedProtocols(JParams& params) {
  return addSupported(params, std::nullopt);
}

bool addSupportedProtocols(JParams& params, std::uint32_t uKind) {
  return addSupported(params, uKind);
}

bool getSupportedProtocols(const JParams& params, std::string& sText) {
  return params.get(kSupportedProtocols, sText);
}

bool getSupportedProtocols(const JParams& params, std::vector<std::string>& ids) {
  std::string sText;
  getSupportedProtocols(params, sText);
  const std::vector<std::string_view> found = split(sText);
  ids.insert(ids.end(), found.begin(), found.end());
  return !found.empty();
}

const StreamProtocol* chooseProtocol(std::string_view sText) {
  const std::vector<std::string_view> ids = split(sText);
  const auto* const pRow = std::find_if(
      std::begin(kProtocols), std::end(kProtocols),
      [&](const StreamProtocol& row) { return std::find(ids.begin(), ids.end(), row.szId) != ids.end(); });
  return pRow != std::end(kProtocols) ? pRow : nullptr;
}

}  // namespace qm_stream
