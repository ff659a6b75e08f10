#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/JLogThreadedInput.h"

class JISocket;

/// An input that takes records in their binary form (`JLog::Msg`) from the datagrams of its socket, one a
/// datagram. What is no record, or larger than the buffer, is dropped. Threads are those of
/// `JLogThreadedInput`.
class JLogGenericMsgInput : public JLogThreadedInput {
 public:
  /// `iBufferSize` is the most bytes of one record. Throws `JGenericError` when there is no memory for the
  /// buffer.
  JLogGenericMsgInput(std::string sName, std::string sThreadName, int iBufferSize);
  ~JLogGenericMsgInput() override;

  int readRecord(JLog::Msg& record) override;

 protected:
  /// Sets the socket, whose read time-out says how long `readRecord` waits. Before `start`.
  void setSocket(std::unique_ptr<JISocket> pSocket) noexcept;

 private:
  const std::size_t m_uCapacity;
  std::unique_ptr<std::uint8_t[]> m_pBuffer;
  std::unique_ptr<JISocket> m_pSocket;
};
