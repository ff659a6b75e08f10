#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLogThreadedOutput.h"

class JOSocket;

/// An output that sends whole records in their binary form (`JLog::Msg`), each with one write of its socket.
/// Without a socket records are dropped. Threads and lock order are those of `JLogThreadedOutput`.
class JLogGenericMsgOutput : public JLogThreadedOutput {
 public:
  /// `iBufferSize` is the most bytes of one record; longer ones lose what doesn't fit. Throws `JGenericError`
  /// when there is no memory for the buffer.
  JLogGenericMsgOutput(std::string sName, std::string sThreadName, int iBufferSize,
                       std::uint32_t uQueueCapacity, int iPriority);
  ~JLogGenericMsgOutput() override;

  /// Throws what the socket throws.
  bool writeRecord(const JLog::Msg& record) override;

 protected:
  /// Sets the socket. Before `start`.
  void setSocket(std::unique_ptr<JOSocket> pSocket) noexcept;

 private:
  const std::size_t m_uLimit;
  std::unique_ptr<std::uint8_t[]> m_pBuffer;
  std::unique_ptr<JOSocket> m_pSocket;
};
