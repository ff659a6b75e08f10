#pragma once

#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "coreapi/qmutils/log/JInProcessForwardOutput.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/log/JLogMsg.h"
#include "coreapi/qmutils/log/JLogThreadedOutput.h"
#include "coreapi/qmutils/registry/jsystemregistry.h"
#include "tests/support/filesizelimit.h"
#include "tests/support/journal.h"
#include "tests/support/tempdir.h"

namespace qm_test {

/// Holds threads until it is opened.
class Gate {
 public:
  void open() {
    const std::lock_guard lock(m_mutex);
    m_bOpen = true;
    m_changed.notify_all();
  }

  /// Says that a thread is here, and holds it.
  void pass() {
    std::unique_lock lock(m_mutex);
    m_bReached = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_bOpen; });
  }

  /// Blocks until a thread has come to the gate.
  void awaitThread() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_bReached; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_bOpen = false;
  bool m_bReached = false;
};

/// An output without a thread that keeps what it gets, but for what the runtime itself tells at the level
/// DEBUG of its threads. The records live on behind the output.
class RecordingOutput : public JLog::GenericOutput {
 public:
  using Records = std::vector<JLog::Msg>;

  explicit RecordingOutput(std::shared_ptr<Records> pRecords, std::string sName = "recording")
      : GenericOutput(std::move(sName)), m_pRecords(std::move(pRecords)) {}

  void write(const JLog::Msg& record) override {
    if (record.uLevel == qm_err::kLogDebug) {
      return;
    }
    m_pRecords->push_back(record);
    if (onWrite) {
      onWrite();
    }
  }

  std::function<void()> onWrite;

 private:
  std::shared_ptr<Records> m_pRecords;
};

/// A threaded output that does with each record what the test says.
class ScriptedOutput : public JLogThreadedOutput {
 public:
  explicit ScriptedOutput(std::uint32_t uCapacity, std::function<bool(const JLog::Msg&)> writer = {})
      : JLogThreadedOutput("scripted", "scripted thread", uCapacity, 0), m_writer(std::move(writer)) {}
  ~ScriptedOutput() override { stop(0, true); }

  bool writeRecord(const JLog::Msg& record) override {
    const bool bWritten = !m_writer || m_writer(record);
    (bWritten ? written : failed).add(record);
    return bWritten;
  }

  void onThreadStop() override { threadsEnded.add(JThread::getCurrentThreadId()); }

  Journal<JLog::Msg> written;
  Journal<JLog::Msg> failed;
  Journal<std::uint32_t> threadsEnded;

 private:
  std::function<bool(const JLog::Msg&)> m_writer;
};

/// An output without a thread that keeps what it gets, for threads to wait for; but for what the runtime
/// itself tells of its threads and sockets. The journal lives on behind the output.
class JournalOutput : public JLog::GenericOutput {
 public:
  explicit JournalOutput(std::shared_ptr<Journal<JLog::Msg>> pJournal)
      : GenericOutput("journal"), m_pJournal(std::move(pJournal)) {}

  void write(const JLog::Msg& record) override {
    if (record.uLevel >= qm_err::kLogInfo && record.uLevel < JLog::kFirstObjectLevel) {
      m_pJournal->add(record);
    }
  }

 private:
  std::shared_ptr<Journal<JLog::Msg>> m_pJournal;
};

/// Takes the lines of an output in the same process.
class JournalReceiver : public qm_utils::ILogReceiver {
 public:
  void receive(const std::string& sLine) override { lines.add(sLine); }

  Journal<std::string> lines;
};

/// A key of the configuration with these values, for as long as this lives.
class TestKey {
 public:
  static constexpr const char* kKeyPath = "SOFTWARE\\LogOutputTest";

  TestKey(const std::map<std::string, std::string>& texts, const std::map<std::string, unsigned>& numbers) {
    m_key.create(qm_utils::RegistryRoot::kLocalMachine, kKeyPath);
    for (const auto& [sName, sText] : texts) {
      m_key.setString(sName, sText);
    }
    for (const auto& [sName, uNumber] : numbers) {
      m_key.setDword(sName, uNumber);
    }
  }
  ~TestKey() {
    JSystemRegistryKey parent;
    parent.open(qm_utils::RegistryRoot::kLocalMachine, "SOFTWARE", qm_utils::kRegistryAllAccess);
    parent.deleteKey("LogOutputTest");
  }
  TestKey(const TestKey&) = delete;
  TestKey& operator=(const TestKey&) = delete;

  const qm_utils::IRegistryReadAccess& get() const { return m_key; }

 private:
  JSystemRegistryKey m_key;
};

inline JLog::Msg makeRecord(std::string sMessage, std::uint32_t uLevel = qm_err::kLogInfo) {
  JLog::Msg record;
  record.uLevel = uLevel;
  record.sMessage = std::move(sMessage);
  return record;
}

/// A record with something in every field.
inline JLog::Msg fullRecord() {
  JLog::Msg record = makeRecord("disk gone", 11);
  record.time = JTime::fromMicroseconds(0x0102030405060708);
  record.uProcessId = 0x1234;
  record.uThreadId = 0xFEDCBA98;
  record.sInstance = "cam 1";
  record.sUnit = "qmctl";
  record.sHost = "h";
  record.sFile = "a.cpp";
  record.uLine = 77;
  record.sClass = "JFoo";
  return record;
}

inline std::vector<std::string> messagesOf(const std::vector<JLog::Msg>& records) {
  std::vector<std::string> messages;
  for (const JLog::Msg& record : records) {
    messages.push_back(record.sMessage);
  }
  return messages;
}

/// Leaves the log without outputs and inputs, before and after each test.
class LogTest : public testing::Test {
 protected:
  LogTest() { JLog::init(0); }
  ~LogTest() override { JLog::shutdown(0); }
};

}  // namespace qm_test
