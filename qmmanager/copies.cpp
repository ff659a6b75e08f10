#include "qmmanager/copies.h"

#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jsockaddr.h"

namespace qm_manager {

Copies::Place::Place(Copies& copies) : m_copies(copies) {
  m_copies.clearUp();
  const JAutoLock lock(m_copies.m_mutex);
  if (m_copies.m_bStopped) {
    QM_THROW(JTextError, "the Manager stops");
  }
  if (m_copies.m_uPlaces >= m_copies.m_settings.uMost) {
    QM_THROW(JTextError, "%zu copies are on their way already, which is the most", m_copies.m_uPlaces);
  }
  ++m_copies.m_uPlaces;
}

Copies::Place::~Place() {
  const JAutoLock lock(m_copies.m_mutex);
  --m_copies.m_uPlaces;
}

Copies::Copies(const Settings& settings) : m_settings(settings) {}

Copies::~Copies() {
  stop();
}

bool Copies::isStopped() const {
  const JAutoLock lock(m_mutex);
  return m_bStopped;
}

/// Lets go of copies that have ended.
void Copies::clearUp() {
  List ended;
  {
    const JAutoLock lock(m_mutex);
    for (auto it = m_running.begin(); it != m_running.end();) {
      const auto copy = it++;
      if (copy->bStarted && copy->pPush->isDone()) {
        ended.splice(ended.end(), m_running, copy);
      }
    }
  }
}

Copies::List::iterator Copies::enter(Running running) {
  const JAutoLock lock(m_mutex);
  return m_running.insert(m_running.end(), std::move(running));
}

void Copies::push(std::unique_ptr<RecordedFrames> pFrames, const qm_stream::StreamProtocol& protocol,
                  const JInetAddr& client) {
  const auto copy = enter({std::make_unique<Place>(*this),
                           std::make_unique<CopyPush>(std::move(pFrames), protocol, m_settings.push)});
  try {
    copy->pPush->connect(client);
    const JAutoLock lock(m_mutex);
    if (m_bStopped) {
      QM_THROW(JTextError, "the Manager stops");
    }
    copy->pPush->start();
    copy->bStarted = true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    leave(copy);
    QM_THROW(JTextError, "no copy can be sent to " + client.toString() + ": " + error->getMessage());
  } catch (...) {
    leave(copy);
    throw;
  }
}

/// Takes a copy out that hasn't begun.
void Copies::leave(List::iterator copy) {
  List failed;
  const JAutoLock lock(m_mutex);
  failed.splice(failed.end(), m_running, copy);
}

void Copies::stop() {
  List ended;
  {
    const JAutoLock lock(m_mutex);
    m_bStopped = true;
    for (auto it = m_running.begin(); it != m_running.end();) {
      const auto copy = it++;
      copy->pPush->abort();
      if (copy->bStarted) {
        ended.splice(ended.end(), m_running, copy);
      }
    }
  }
}

}  // namespace qm_manager
