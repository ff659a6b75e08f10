#include "qmmanager/manager.h"

#include <cstdint>
#include <exception>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/params/jparams.h"
#include "qmmanager/addfile.h"
#include "qmmanager/archive.h"
#include "qmmanager/commandhandlers.h"
#include "qmmanager/copyhandlers.h"
#include "qmmanager/queryhandlers.h"
#include "qmmanager/request.h"
#include "qmmanager/statushandlers.h"

namespace qm_manager {

namespace {

std::unique_ptr<JParams> refusal(const std::string& sFunction, const std::string& sReason) {
  qm_err::log(qm_err::kLogInfo, "%s is refused: %s\n", sFunction.c_str(), sReason.c_str());
  auto pAnswer = std::make_unique<JParams>();
  pAnswer->add("Error", sReason);
  return pAnswer;
}

}  // namespace

void Manager::checkVersion(const JRPCVersion& version) {
  // Clients take a version for ten times its first part and its second: 3.13 is beyond 4.2 for them.
  constexpr std::int32_t kFirstMajor = 3;
  constexpr std::int64_t kLastRank = 42;
  const std::int64_t iRank = std::int64_t{version.major} * 10 + version.minor;
  if (version.minor < 0 || version.major < kFirstMajor || iRank > kLastRank) {
    QM_THROW(JTextError, "the dialect of version " + version.toText() +
                             " isn't served; there are those from 3.0 to below 4.3");
  }
}

Manager::Manager(Archive& archive, const Settings& settings)
    : JRPCTunnelService(settings.address, "StorageManager"), m_copies(settings.copies) {
  checkVersion(settings.version);
  setVersion(settings.version);
  addStatusHandlers(m_handlers, archive, settings.version);
  addQueryHandlers(m_handlers, archive);
  addCommandHandlers(m_handlers, archive);
  addAddFileHandlers(m_handlers, archive, settings.sImportDirectory, [this] { return isShut(); });
  addCopyHandlers(m_handlers, archive, m_copies, settings.sCopyDirectory);
}

Manager::~Manager() {
  stop();
}

void Manager::stop() {
  m_copies.stop();
  JRPCTunnelService::stop();
}

bool Manager::dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                       ConnectionId uConnection) {
  const auto handler = m_handlers.find(sFunction);
  if (handler == m_handlers.end()) {
    return JRPCTunnelService::dispatch(sFunction, parameters, pAnswer, uConnection);
  }
  try {
    pAnswer = std::make_unique<JParams>();
    handler->second(Request(parameters), *pAnswer);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    pAnswer = refusal(sFunction, error->getMessage());
  } catch (const std::exception& exception) {
    pAnswer = refusal(sFunction, exception.what());
  }
  return true;
}

}  // namespace qm_manager
