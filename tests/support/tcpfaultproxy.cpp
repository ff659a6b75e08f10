#include "tests/support/tcpfaultproxy.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace qm_test {

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int newSocket() {
  return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void closeWithReset(int& handle) {
  const linger hard{1, 0};
  setsockopt(handle, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  close(handle);
  handle = -1;
}

}  // namespace

/// One direction of a connection: bytes taken from one side that the other side hasn't got yet.
struct TcpFaultProxy::Flow {
  int* from;
  int* to;
  FaultRule rule;
  std::vector<char> waiting;
  std::uint64_t passed = 0;
  Clock::time_point notBefore{};
  bool ended = false;       // the sender has closed its side, or the rule stopped the reading
  bool swallowing = false;  // the black hole is open

  bool due() const { return !waiting.empty() && Clock::now() >= notBefore; }
};

struct TcpFaultProxy::Pair {
  int client;
  int server;
  Flow toServer;
  Flow toClient;

  Pair(int clientHandle, int serverHandle, const FaultRule& toServerRule, const FaultRule& toClientRule)
      : client(clientHandle),
        server(serverHandle),
        toServer{&client, &server, toServerRule, {}},
        toClient{&server, &client, toClientRule, {}} {}
  ~Pair() {
    for (const int handle : {client, server}) {
      if (handle >= 0) {
        close(handle);
      }
    }
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  void reset() {
    closeWithReset(client);
    closeWithReset(server);
  }
  bool closed() const { return client < 0 || (toServer.ended && toClient.ended); }
};

TcpFaultProxy::TcpFaultProxy(std::uint16_t targetPort) : m_targetPort(targetPort) {
  m_listener = newSocket();
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  int ends[2];
  if (m_listener < 0 || bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(m_listener, 64) != 0 ||
      getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
      pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::runtime_error("the fault proxy could not listen");
  }
  m_port = ntohs(address.sin_port);
  m_wakeRead = ends[0];
  m_wakeWrite = ends[1];
  m_thread = std::thread([this] { run(); });
}

TcpFaultProxy::~TcpFaultProxy() {
  m_stop = true;
  wake();
  m_thread.join();
  for (const int handle : {m_listener, m_wakeRead, m_wakeWrite}) {
    close(handle);
  }
}

void TcpFaultProxy::setRules(const FaultRule& toServer, const FaultRule& toClient) {
  const std::lock_guard lock(m_rulesMutex);
  m_toServer = toServer;
  m_toClient = toClient;
}

void TcpFaultProxy::resetAll() {
  m_resetAll = true;
  wake();
}

void TcpFaultProxy::wake() const {
  [[maybe_unused]] const ssize_t written = write(m_wakeWrite, "", 1);
}

void TcpFaultProxy::acceptOne() {
  int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) {
    return;
  }
  ++m_accepted;
  int server = newSocket();
  const sockaddr_in target = loopback(m_targetPort);
  if (connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
    close(server);
    closeWithReset(client);
    return;
  }
  const int on = 1;
  setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  setsockopt(server, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::lock_guard lock(m_rulesMutex);
  m_pairs.push_back(std::make_unique<Pair>(client, server, m_toServer, m_toClient));
}

void TcpFaultProxy::applyRule(Pair& pair, Flow& flow) {
  switch (flow.rule.action) {
    case FaultRule::Action::kReset:
      pair.reset();
      return;
    case FaultRule::Action::kClose:
      shutdown(pair.client, SHUT_RDWR);
      shutdown(pair.server, SHUT_RDWR);
      pair.toServer.ended = pair.toClient.ended = true;
      return;
    case FaultRule::Action::kBlackHole:
      flow.swallowing = true;
      return;
  }
}

/// Passes on what is due, never more than the rule lets through, and takes the rule's action when its byte is
/// reached.
void TcpFaultProxy::pump(Pair& pair, Flow& flow) {
  const std::uint64_t left = flow.rule.afterBytes - flow.passed;
  const std::size_t size = std::min({flow.waiting.size(), flow.rule.chunk, static_cast<std::size_t>(left)});
  const ssize_t sent = size == 0 ? 0 : send(*flow.to, flow.waiting.data(), size, MSG_NOSIGNAL);
  if (sent < 0) {
    pair.reset();
    return;
  }
  flow.waiting.erase(flow.waiting.begin(), flow.waiting.begin() + sent);
  flow.passed += static_cast<std::uint64_t>(sent);
  flow.notBefore = Clock::now() + flow.rule.delay;
  if (flow.passed == flow.rule.afterBytes && !flow.swallowing) {
    applyRule(pair, flow);
  }
  if (flow.swallowing) {
    flow.waiting.clear();
  }
}

void TcpFaultProxy::run() {
  while (!m_stop) {
    std::vector<pollfd> handles{{m_listener, POLLIN, 0}, {m_wakeRead, POLLIN, 0}};
    std::vector<std::pair<Pair*, Flow*>> readers;
    int timeout = -1;
    for (const auto& pair : m_pairs) {
      for (Flow* flow : {&pair->toServer, &pair->toClient}) {
        if (!flow->waiting.empty()) {
          const auto wait =
              std::chrono::ceil<std::chrono::milliseconds>(flow->notBefore - Clock::now()).count();
          const int milliseconds = static_cast<int>(std::max<std::int64_t>(wait, 0));
          timeout = timeout < 0 ? milliseconds : std::min(timeout, milliseconds);
        } else if (!flow->ended) {
          handles.push_back({*flow->from, POLLIN, 0});
          readers.emplace_back(pair.get(), flow);
        }
      }
    }
    poll(handles.data(), handles.size(), timeout);

    for (std::size_t i = 0; i < readers.size(); ++i) {
      auto [pair, flow] = readers[i];
      if (handles[i + 2].revents == 0 || pair->closed()) {
        continue;
      }
      std::array<char, 65536> buffer;
      const ssize_t got = recv(*flow->from, buffer.data(), buffer.size(), 0);
      if (got > 0) {
        flow->waiting.assign(buffer.begin(), buffer.begin() + got);
      } else if (got == 0) {
        flow->ended = true;
        shutdown(*flow->to, SHUT_WR);
      } else {
        pair->reset();
      }
    }
    for (const auto& pair : m_pairs) {
      for (Flow* flow : {&pair->toServer, &pair->toClient}) {
        if (!pair->closed() && flow->due()) {
          pump(*pair, *flow);
        }
      }
    }
    if (m_resetAll.exchange(false)) {
      std::for_each(m_pairs.begin(), m_pairs.end(), [](const auto& pair) { pair->reset(); });
    }
    std::erase_if(m_pairs, [](const auto& pair) { return pair->closed(); });
    if ((handles[1].revents & POLLIN) != 0) {
      std::array<char, 64> drained;
      [[maybe_unused]] const ssize_t got = read(m_wakeRead, drained.data(), drained.size());
    }
    if ((handles[0].revents & POLLIN) != 0) {
      acceptOne();
    }
  }
}

}  // namespace qm_test
