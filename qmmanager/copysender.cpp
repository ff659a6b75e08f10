#include "qmmanager/copysender.h"

#include <iterator>
#include <string>
#include <utility>

#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/qmtpkt.h"
#include "coreapi/qmutils/error/jerror.h"

namespace qm_manager {

using qm_ci::Bitstream;

namespace {

JIoBuf bufferOf(const std::uint8_t* pBytes, std::size_t uSize) {
  return {const_cast<std::uint8_t*>(pBytes), static_cast<std::uint32_t>(uSize)};
}

}  // namespace

CopySender::CopySender(const qm_stream::StreamProtocol& protocol, std::unique_ptr<JOSocket> pConnection)
    : m_bNative(protocol.szId == std::string(qm_stream::kTpktProtocol)),
      m_pOutput(protocol.createOSocket(std::move(pConnection), {})) {
  if (m_pOutput == nullptr) {
    QM_THROW(JTextError, "no stream of the protocol %s goes over this connection", protocol.szId);
  }
  try {
    m_pOutput->gatherSmallFrames();
  } catch (...) {
    m_pOutput->abandon();  // no marker: the client would take nothing for the whole copy
    throw;
  }
}

void CopySender::sendDescription(const qm_ci::StreamInfo& info) {
  const bool bFirst = !std::exchange(m_bDescribed, true);
  if (!m_bNative) {
    if (!bFirst) {
      QM_THROW(JTextError, "the recording changes its form, which this protocol can't tell");
    }
    return;
  }
  Bitstream header;
  header.attach(m_header.data(), static_cast<std::uint32_t>(m_header.size()));
  header.setFormat(qm_ci::QMCI_FMT_PACKET, 1);  // for its word: the block has no room for the table
  header.setHeaderLength(Bitstream::m_uMinQMCIBitstreamSize);
  header.setPictureType(qm_ci::kFrameKindStreamInfo);
  qm_ci::hton(header.getQMCIBitstreamPtr());
  qm_ci::InfoBlock record(info.getBytes().begin(), info.getBytes().end());
  qm_ci::swapStreamInfo(record);
  const JIoBuf buffers[] = {bufferOf(m_header.data(), m_header.size()),
                            bufferOf(record.data(), record.size())};
  m_pOutput->writev(buffers, std::size(buffers));
}

void CopySender::sendFrame(const qm_ci::ConstBitstream& frame) {
  const qm_ci::Packet packet = frame.getPacket(0);
  if (packet.nLength == 0) {
    return;
  }
  Bitstream header;
  header.attach(m_header.data(), static_cast<std::uint32_t>(m_header.size()));
  header.copyHeader(frame);
  if (m_bNative) {
    qm_ci::hton(header.getQMCIBitstreamPtr());
  }
  const JIoBuf buffers[] = {bufferOf(m_header.data(), m_header.size()),
                            bufferOf(packet.pBuf, packet.nLength)};
  m_pOutput->writev(buffers, std::size(buffers));
}

void CopySender::cut() {
  m_pOutput->flush();
  m_pOutput->abandon();
}

}  // namespace qm_manager
