#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmutils/log/jtraceableobject.h"
#include "coreapi/qmutils/socket/jiobuf.h"
#include "coreapi/qmutils/socket/jsockaddr.h"
#include "coreapi/qmutils/time/jtime.h"

/// The two halves of every byte channel: connections, datagram endpoints, files, child processes and framed
/// media streams.
///
/// Time-outs are signed 32-bit milliseconds; -1 means for ever. Failures are thrown as `JError` pointers: a
/// time-out is a `JTimeoutError`, a failure of the system a `JSysError` (on sockets with a Windows Sockets
/// number and the bit 0x40000000). One thread may read while another writes; further threads only `close`.

/// Told when a write in the asynchronous form has ended. Comes on the thread that writes.
class JSocketAsyncIONotify {
 public:
  virtual ~JSocketAsyncIONotify() = default;
  virtual void onComplete(std::size_t uBytes) = 0;
  virtual void onError() = 0;
};

/// The input half.
class JISocket : public qm_utils::ITraceableObject {
 public:
  virtual std::unique_ptr<JSockAddr> getLocalAddress() const = 0;
  virtual std::unique_ptr<JSockAddr> getRemoteAddress() const = 0;

  /// How long a read waits until something is there.
  virtual void setReadTimeout(std::int32_t iMilliseconds) = 0;
  virtual std::int32_t getReadTimeout() const = 0;

  /// The time from which the channel's own times count: 0.
  virtual const JTime& getTimeOrigin() const;

  /// The most bytes that the channel carries in one packet.
  virtual std::uint32_t getMTU() const = 0;

  /// "tcp", "udp", "ipm", "file" and so on; may be empty.
  virtual std::string getProtocol() const = 0;

  /// Reads at most `uLength` bytes, once. 0 is the orderly end of the channel.
  virtual std::size_t read(void* pBuffer, std::size_t uLength) = 0;

  /// Reads once into several buffers, each filled before the next one is begun. The array is the caller's to
  /// give up: a framed channel shortens it to the frame.
  virtual std::size_t readv(JIoBuf* pBuffers, std::size_t uCount) = 0;

  /// `read`, with -1 in place of every `JError`.
  virtual std::int64_t readNoThrow(void* pBuffer, std::size_t uLength);

  /// Moves the position by a number of bytes. -1 where the channel has no position.
  virtual int skip(std::int64_t iOffset);

  /// Moves the position to the start. -1 where the channel has no position.
  virtual int rewind();

  /// Closes the channel. A second call does nothing.
  virtual void close() = 0;

  /// Ends the reading side.
  virtual void shutdownRead() = 0;

  /// Ends a stream at its source; false where there is no such thing.
  virtual bool tearDown();

  virtual void keepAlive();

  /// Three counts of the channel, each pointer may be null. All 0 where there are none.
  virtual void getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const;

  /// The alignment in bytes that the channel demands of buffers, sizes and positions; 0 means none.
  virtual std::uint32_t getAlignment() const;
};

/// The output half.
class JOSocket : public qm_utils::ITraceableObject {
 public:
  virtual std::unique_ptr<JSockAddr> getLocalAddress() const = 0;
  virtual std::unique_ptr<JSockAddr> getRemoteAddress() const = 0;

  /// How long a write waits until something can be taken.
  virtual void setWriteTimeout(std::int32_t iMilliseconds) = 0;
  virtual std::int32_t getWriteTimeout() const = 0;

  /// As in `JISocket`.
  virtual const JTime& getTimeOrigin() const;
  virtual std::uint32_t getMTU() const = 0;
  virtual std::string getProtocol() const = 0;

  /// Bytes of framing that the channel adds to each frame.
  virtual std::uint32_t getHeaderSize() const;

  /// The asynchronous form of `write`: throws no `JError`, but tells `pNotify`, which may be null, how it
  /// ended. A failure is logged at level EXCEPTION.
  virtual void write(const void* pBuffer, std::size_t uLength, JSocketAsyncIONotify* pNotify);

  /// Writes from a buffer and returns the bytes taken, which may be fewer than given unless the class
  /// promises more.
  virtual std::size_t write(const void* pBuffer, std::size_t uLength) = 0;

  /// The same for several buffers, in order.
  virtual void writev(const JIoBuf* pBuffers, std::size_t uCount, JSocketAsyncIONotify* pNotify);
  virtual std::size_t writev(const JIoBuf* pBuffers, std::size_t uCount) = 0;

  /// `write`, with -1 in place of every `JError`.
  virtual std::int64_t writeNoThrow(const char* pText, std::size_t uLength);

  /// Holds its place among the operations. No effect in any class.
  virtual void reserved();

  /// As in `JISocket`.
  virtual int rewind();

  /// Ends the writing side: the peer reads to its end.
  virtual void shutdownWrite() = 0;

  /// Tells the other end of a stream that it ends, or that it goes on.
  virtual void sendDisconnection(std::int32_t iId);
  virtual void sendKeepAlive();

  /// As in `JISocket`.
  virtual void getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const;
  virtual std::uint32_t getAlignment() const;
};

/// Both halves in one object. What both declare has one meaning here.
class JIoSocket : public JISocket, public JOSocket {
 public:
  std::uint32_t* getTraceMask() const override = 0;
  const std::string& getName() const override = 0;
  bool isTraceEnabled(std::uint32_t uBits) const override = 0;
  [[gnu::format(printf, 2, 3)]] void trace(const char* szFormat, ...) const override = 0;

  std::unique_ptr<JSockAddr> getLocalAddress() const override = 0;
  std::unique_ptr<JSockAddr> getRemoteAddress() const override = 0;
  const JTime& getTimeOrigin() const override;
  std::uint32_t getMTU() const override = 0;
  std::string getProtocol() const override = 0;
  int rewind() override;
  void getStatistics(std::uint64_t* pFirst, std::uint64_t* pSecond, std::uint64_t* pThird) const override;
  std::uint32_t getAlignment() const override;
};
