#pragma once

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/log/JLogMsg.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "tests/support/thrownby.h"

namespace qm_test {

/// An address on this machine.
inline JInetAddr loopback(std::uint16_t uPort) {
  return {"127.0.0.1", uPort};
}

/// How many descriptors the process has open.
inline std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Reads until the channel ends.
inline std::string readAll(JISocket& socket) {
  std::string sAll;
  char buffer[4096];
  while (const std::size_t uRead = socket.read(buffer, sizeof buffer)) {
    sAll.append(buffer, uRead);
  }
  return sAll;
}

/// A TCP connection over the loopback: both ends, and the listener that made it.
struct Connection {
  Connection() {
    client.connect(loopback(listener.getLocalPort()));
    pServer = listener.accept();
  }

  JTCPSocket listener{std::uint16_t{0}};
  JTCPSocket client;
  std::unique_ptr<JSocket> pServer;
};

/// Takes the place of the log's outputs for its lifetime and keeps the lines that come.
class LogLines {
 public:
  LogLines() {
    JLog::init();
    JLog::deleteOutputs();
    auto pOutput = std::make_unique<Output>();
    m_pOutput = pOutput.get();
    JLog::addLogOutput(std::move(pOutput));
  }
  ~LogLines() { JLog::deleteOutputs(); }
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;

  /// How often a line of this level and text came.
  std::ptrdiff_t count(std::uint32_t uLevel, const std::string& sText) const {
    const std::lock_guard lock(m_pOutput->mutex);
    return std::count(m_pOutput->lines.begin(), m_pOutput->lines.end(), std::pair(uLevel, sText));
  }

  /// The lines that came, as "LEVEL TEXT" each.
  std::vector<std::string> all() const {
    const std::lock_guard lock(m_pOutput->mutex);
    std::vector<std::string> texts;
    for (const auto& [uLevel, sText] : m_pOutput->lines) {
      texts.push_back(std::to_string(uLevel) + ' ' + sText);
    }
    return texts;
  }

 private:
  struct Output : JLog::GenericOutput {
    Output() : GenericOutput("lines") {}
    void write(const JLog::Msg& record) override {
      const std::lock_guard lock(mutex);
      lines.emplace_back(record.uLevel, record.sMessage);
    }
    std::mutex mutex;
    std::vector<std::pair<std::uint32_t, std::string>> lines;
  };

  Output* m_pOutput;
};

}  // namespace qm_test
