#pragma once

#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLogOutput.h"

namespace qm_utils {

/// Takes the lines of an output in the same process: another log, a window, a test.
class ILogReceiver {
 public:
  virtual ~ILogReceiver() = default;

  /// Takes one finished line, on the output's thread. May throw a `JError` to be given the line again later;
  /// what it logs itself may come back to it.
  virtual void receive(const std::string& sLine) = 0;
};

}  // namespace qm_utils

/// Passes each line to a receiver in the same process, which registers under a name. While nobody is
/// registered under the output's name, lines are dropped.
///
/// Its thread always runs, with a queue of `JLog::kQueueCapacity` records.
class JInProcessForwardOutput : public JLogFormattedOutput {
 public:
  /// `sReceiverId` is the name of the receiver.
  JInProcessForwardOutput(std::string sName, std::string sReceiverId, std::uint32_t uMask = 0,
                          const char* szFormat = nullptr);

  /// From a key of the configuration, whose value `ReceiverID` names the receiver. Without it the output says
  /// so at level ERROR and drops all lines.
  JInProcessForwardOutput(std::string sName, const qm_utils::IRegistryReadAccess& key);

  /// Gives up what the queue still holds; `stop` comes first for those who want it passed on.
  ~JInProcessForwardOutput() override;

  void writeText(const JLog::Msg& record, const std::string& sLine) override;

  /// Registers a receiver in place of any other of that name; null takes it away. An output that is passing
  /// it a line keeps it until that is done. Any thread.
  static void setReceiver(const std::string& sReceiverId, std::shared_ptr<qm_utils::ILogReceiver> pReceiver);

 private:
  const std::string m_sReceiverId;
};
