#include "coreapi/qmutils/log/JLogThreadedInput.h"

#include <exception>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/log/JLogState.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"

JLogThreadedInput::JLogThreadedInput(std::string sName, std::string sThreadName)
    : GenericInput(std::move(sName)), JThread(std::move(sThreadName)) {}

JLogThreadedInput::~JLogThreadedInput() {
  JASSERT(getState() == kNotStarted || getState() == kEnded);
}

void JLogThreadedInput::forward(const JLog::Msg& record) {
  GenericInput::forward(record);
}

void JLogThreadedInput::start() {
  if (isFinished()) {
    m_stop.reset();
    JThread::start();
  }
}

bool JLogThreadedInput::stop(int /*iTimeout*/, bool bWait) {
  m_stop.set();
  if (bWait) {
    JThread::stop();
    return true;
  }
  return isFinished();
}

void JLogThreadedInput::run() {
  while (!m_stop.wait(0)) {
    JLog::Msg record;
    const int iResult = tryRead(record);
    if (iResult < 0 && m_stop.wait(m_iRetryDelay)) {
      break;
    }
    if (iResult <= 0) {
      continue;
    }
    if (record.uLevel == qm_err::kLogNone && record.sMessage == kReloadOrder) {
      reload();
    } else {
      forward(record);
    }
  }
  onThreadStop();
}

/// Reads the configuration again, from its file on. A failure to read the file is told by the outputs that
/// what it holds up to there makes.
void JLogThreadedInput::reload() {
  const qm_utils::KeptBackRecords failures;
  try {
    JSystemRegistryKey::reload();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    qm_err::log(qm_err::kLogError, "The configuration file can't be read: %s", error->getMessage().c_str());
  }
  JLog::configure(JLog::kNoChange);
  JLog::log(qm_err::kLogInfo, "---- LOG CONFIGURATION RELOADED ----");
}

int JLogThreadedInput::tryRead(JLog::Msg& record) {
  try {
    return readRecord(record);
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
  } catch (const std::exception& error) {
    qm_err::logText(qm_err::kLogException, error.what());
  }
  return -1;
}
