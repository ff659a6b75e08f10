#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "coreapi/qmutils/rpc/linebuffer.h"

class JIoSocket;

/// Carries lines over a byte channel, both ways.
///
/// One thread reads and one writes at a time; `setSocket` needs both of them out. Failures of the channel
/// come out of it as they are.
class JLineIO {
 public:
  /// Greatest length of a request line that a server takes, in bytes.
  static constexpr std::size_t kRequestLimit = std::size_t{16} << 20;

  /// Greatest length of an answer line that a client takes, in bytes.
  static constexpr std::size_t kAnswerLimit = std::size_t{1} << 30;

  /// Bytes of a line that make a reader's time-out run anew.
  static constexpr std::size_t kRenewalBytes = 16384;

  /// Without a channel.
  explicit JLineIO(std::size_t uLineLimit);
  virtual ~JLineIO();
  JLineIO(const JLineIO&) = delete;
  JLineIO& operator=(const JLineIO&) = delete;

  /// Takes another channel, or none; deletes the old one if it was owned, and forgets what had come from it.
  void setSocket(JIoSocket* pSocket, bool bOwns);

  /// The channel, or null.
  JIoSocket* getSocket() const noexcept { return m_pSocket; }

  /// Sends a text and its line end in one write. Throws JTextError, and sends nothing, for a text with a CR,
  /// LF or NUL inside and when there is no channel.
  void writeLine(std::string_view sText);

  /// The next line without its end, or nothing when the peer has closed; what it had sent of an unfinished
  /// line is lost. The line lies in this object, with a NUL behind it, until the next read. Waits as long as
  /// the channel's read time-out says, for each read of it. Throws JTextError for a line beyond the limit, at
  /// this call and all that follow, and when there is no channel.
  std::optional<std::string_view> readLine();

  /// As `readLine`, but waits `iTimeout` milliseconds for the line as a whole, -1 for ever. The time runs
  /// anew with each `kRenewalBytes` that have come, so that a long answer may take its time, while a peer
  /// that drips can't hold the reader. Throws JTimeoutError; what has come of the line stays, and a later
  /// call gives the whole of it. The channel's read time-out is -1 afterwards.
  std::optional<std::string_view> readLine(std::int32_t iTimeout);

  /// Takes what has come already, then reads until `uSize` bytes are there or the channel ends. Returns their
  /// number. Throws JTextError when there is no channel.
  std::size_t readBytes(void* pBuffer, std::size_t uSize);

  /// Bytes that the read buffer holds at most before it grows.
  std::size_t getReadCapacity() const noexcept { return m_lines.getCapacity(); }

 protected:
  /// An empty text, to build the next line in. It belongs to the thread that writes.
  std::string& beginLine() noexcept;

  /// The text built since `beginLine`, without its end.
  std::string_view builtLine() const noexcept { return m_sWrite; }

  /// Throws as `writeLine` does for a text that can't be a line.
  void checkBuiltLine() const;

  /// Sends the text built since `beginLine`, which is a line, in one write. Throws JTextError when there is
  /// no channel, and what the channel throws; part of the line may have gone out then.
  void writeBuiltLine();

 private:
  JIoSocket& socket() const;
  std::size_t fill(JIoSocket& source);

  JIoSocket* m_pSocket = nullptr;
  bool m_bOwnsSocket = false;
  qm_utils::LineBuffer m_lines;
  std::string m_sWrite;
};
