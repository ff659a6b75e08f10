#include "coreapi/qmutils/log/telnetserver.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "coreapi/platform/clock.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_utils {

namespace {

constexpr int kBacklog = 16;

/// Milliseconds that the thread waits when a client couldn't be taken.
constexpr int kAcceptRetry = 1000;

/// Reads of what a client has sent, at most, before the others get their turn.
constexpr int kMaxReads = 16;

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;

/// Keeps the sockets of clients from logging.
std::uint32_t g_uNoTrace = 0;

/// The servers by interface and port. Never destroyed: outputs may write until the process has ended.
struct Servers {
  JMutex mutex;
  std::map<std::uint64_t, std::shared_ptr<TelnetServer>> byPlace;
};

Servers& servers() {
  static Servers& all = *new Servers;
  return all;
}

std::string threadName(const std::string& sOutputName, std::uint16_t uPort) {
  return sOutputName + " [Log:Out:Formatted:Telnet] - TelnetServer on tcp port=" + std::to_string(uPort);
}

/// Reads what a client has sent. False when it is gone.
bool isThere(JSocket& client) {
  try {
    char buffer[512];
    for (int i = 0; i < kMaxReads; ++i) {
      if (client.read(buffer, sizeof buffer) == 0) {
        return false;
      }
    }
    return true;
  } catch (JTimeoutError* pError) {
    const qm_err::CaughtError error(pError);
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

/// Milliseconds until a time of the steady clock, 1 at least: what can be had at once is had then.
std::int32_t millisecondsTo(std::int64_t iEnd) {
  const std::int64_t iLeft = (iEnd - qm_platform::steadyClockNanoseconds()) / kNanosecondsPerMillisecond;
  return static_cast<std::int32_t>(std::max<std::int64_t>(iLeft, 1));
}

/// Writes a text to a client until a time of the steady clock. False when it is gone or too slow.
bool writeTo(JSocket& client, std::string_view text, std::int64_t iEnd) {
  try {
    while (!text.empty()) {
      client.setWriteTimeout(millisecondsTo(iEnd));
      text.remove_prefix(client.write(text.data(), text.size()));
      if (!text.empty() && qm_platform::steadyClockNanoseconds() >= iEnd) {
        return false;
      }
    }
    return true;
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    return false;
  }
}

}  // namespace

TelnetServer::Listener::Listener(const JInetAddr& address) : JTCPSocket(&g_uNoTrace) {
  control("setsockopt", qm_platform::setReuseAddress);
  JStreamSocket::bind(address);
}

TelnetServer::TelnetServer(const std::string& sOutputName, int iInterface, std::uint16_t uPort)
    : JThread(threadName(sOutputName, uPort)),
      m_listener(JInetAddr(iInterface, uPort)),
      m_uPort(m_listener.getLocalPort()) {}

TelnetServer::~TelnetServer() {
  m_stop.set();
  m_listener.close();
  JThread::stop();
}

std::shared_ptr<TelnetServer> TelnetServer::share(const std::string& sOutputName, int iInterface,
                                                  std::uint16_t uPort) {
  constexpr std::uint64_t kPorts = 65536;
  const std::uint64_t uPlace = static_cast<std::uint64_t>(iInterface) * kPorts + uPort;
  Servers& all = servers();
  std::shared_ptr<TelnetServer> pNew;
  {
    const JAutoLock lock(all.mutex);
    const auto found = all.byPlace.find(uPlace);
    if (found != all.byPlace.end()) {
      return found->second;
    }
    pNew = std::make_shared<TelnetServer>(sOutputName, iInterface, uPort);
    all.byPlace.emplace(uPlace, pNew);
  }
  try {
    // Without the lock: both may be told in the log, which may be at `deleteFree` just now.
    pNew->m_listener.listen(kBacklog);
    pNew->start();
  } catch (JError*) {
    const JAutoLock lock(all.mutex);
    all.byPlace.erase(uPlace);
    throw;
  }
  return pNew;
}

void TelnetServer::deleteFree() {
  std::vector<std::shared_ptr<TelnetServer>> free;  // they end behind the lock
  Servers& all = servers();
  const JAutoLock lock(all.mutex);
  std::erase_if(all.byPlace, [&](const auto& place) {
    const bool bFree = place.second.use_count() <= 1;
    if (bFree) {
      free.push_back(place.second);
    }
    return bFree;
  });
}

void TelnetServer::run() {
  while (!m_stop.wait(0)) {
    try {
      const int iClient = m_listener.acceptHandle();
      if (iClient < 0) {
        return;
      }
      add(std::make_unique<JSocket>(JSocketNumber{iClient}, &g_uNoTrace));
    } catch (JError* pError) {
      const qm_err::CaughtError error(pError);  // the socket has logged it
      if (m_stop.wait(kAcceptRetry)) {
        return;
      }
    }
  }
}

void TelnetServer::add(std::unique_ptr<JSocket> pClient) {
  pClient->setReadTimeout(0);
  const JAutoLock lock(m_mutex);
  std::erase_if(m_clients, [](const auto& pOther) { return !isThere(*pOther); });
  if (m_clients.size() < kMaxClients) {
    m_clients.push_back(std::move(pClient));
  }
}

void TelnetServer::write(const std::string& sText) {
  const JAutoLock lock(m_mutex);
  const std::int64_t iEnd =
      qm_platform::steadyClockNanoseconds() + kWriteTimeout * kNanosecondsPerMillisecond;
  std::erase_if(m_clients, [&](const auto& pClient) { return !writeTo(*pClient, sText, iEnd); });
}

std::size_t TelnetServer::getClientCount() {
  const JAutoLock lock(m_mutex);
  return m_clients.size();
}

}  // namespace qm_utils
