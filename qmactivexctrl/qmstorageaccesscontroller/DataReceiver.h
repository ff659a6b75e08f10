#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmstream/iframesocket.h"
#include "coreapi/qmutils/thread/jmutex.h"
#include "coreapi/qmutils/thread/jthread.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"
#include "storage/FileOutput.h"

class JTCPSocket;

/// The thread of a copy: takes the connection that the server opens, and writes the frames that come over it
/// into media files. Deleting the last file's writer, which finishes that file, is the end of its run.
///
/// The owner starts it, may `cancel`, stops it, and asks for its results then. It can't touch the
/// controller's messages, so it records one text.
class StorageAccessController3X4X::DataReceiver : public JThread {
 public:
  /// Listener, client and parameters stay the caller's and outlive this.
  ///
  /// `sProtocol` is the id of the stream protocol. `iTimeOut` bounds each wait for the server, milliseconds;
  /// below 0 it is 5 seconds. `sExtension` and `sPath`, which may be empty, name the files that begin when
  /// the stream changes on its way. `pFileParams` are the properties of an output that the stream's own
  /// description opens; null when the output is open.
  DataReceiver(JTCPSocket& listener, std::string sProtocol, std::int32_t iTimeOut,
               std::unique_ptr<FileOutput> pOutput, std::string sExtension, std::string sPath,
               JRPCClient& client, const JParams* pFileParams);

  /// Waits for the thread.
  ~DataReceiver() override;

  /// Ends the wait for the connection. Any thread.
  void cancel();

  /// Ends the copy: takes no connection, or closes the one there is, which wakes whoever reads from it. The
  /// files are finished, and a text is recorded unless the stream has ended by itself. Any thread.
  void abort() noexcept;

  // Results, once the thread is stopped.

  bool hasError() const noexcept { return m_bError; }
  const std::string& getError() const noexcept { return m_sError; }
  std::uint32_t getFramesWritten() const noexcept { return m_framesWritten; }

  void run() override;

 private:
  /// What was read.
  enum class Pass {
    kFrame,        ///< a frame, ready to be written
    kDescription,  ///< the description of what follows
    kEnd,          ///< the end of the stream
  };

  std::unique_ptr<JSocket> acceptConnection();
  std::unique_ptr<qm_stream::IFrameSocket> wrap(std::unique_ptr<JSocket> pAccepted) const;
  void receive(std::unique_ptr<JSocket> pAccepted);
  bool receiveFrames(qm_stream::IFrameSocket& input);
  bool prepareFrameBuffer();
  void allocateFrame(std::uint32_t uPayload);
  qm_ci::PacketSpace nextSpace();
  Pass readCopiedFrame(qm_stream::IFrameSocket& input);
  Pass readFrame(qm_stream::IFrameSocket& input);
  std::uint32_t takeHeader(std::size_t uRead, const JIoBuf (&ioArray)[2], const qm_ci::PacketSpace& space);
  void takeDescription(std::uint8_t* pPayload, std::uint32_t uPayload);
  void beginNextFile(const qm_ci::StreamInfo& streamInfo);
  bool writeFrame();
  void setInput(qm_stream::IFrameSocket* pInput);
  void record(const char* szError);

  JMutex m_mutex;  ///< guards the last step of the run against `cancel`, and the connection against `abort`
  JTCPSocket* m_pListener;
  std::string m_sProtocol;
  std::int32_t m_timeOut;
  std::unique_ptr<FileOutput> m_pOutput;
  std::string m_sExtension;
  std::string m_sPath;
  JRPCClient* m_pClient;
  bool m_bError = false;
  std::string m_sError;
  std::uint32_t m_framesWritten = 0;
  std::uint32_t m_segment = 0;  ///< files begun on the way
  bool m_bUnfinished = false;   ///< a file with frames lacks its end
  const JParams* m_pFileParams;

  std::atomic<bool> m_bAborted{false};
  qm_stream::IFrameSocket* m_pInput = nullptr;  ///< what `abort` closes; under the mutex

  bool m_bFirstPacket = true;
  qm_ci::Bitstream m_oBs;     ///< the frame
  qm_ci::Bitstream m_oBsHdr;  ///< a received header
};
