#include "tests/qmactivexctrl/qmstorageaccesscontroller/pushing.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmstream/rcpyheader.h"
#include "coreapi/qmstream/tpktheader.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace qm_test {

std::string copied(const std::string& sPayload, std::uint64_t uNumber) {
  qm_stream::RemoteCopyFrameHeader header;
  header.setFrameSize(static_cast<std::uint32_t>(sPayload.size()));
  header.setFrameNumber(uNumber);
  header.setTimeStamp(kFirstPushed + (uNumber - 1) * 40000);
  header.setAccessPoint(true);
  return std::string(reinterpret_cast<const char*>(header.data()), header.kSize) + sPayload;
}

std::string tpkt(const std::string& sFrame) {
  const qm_stream::TPKT header(static_cast<std::uint32_t>(sFrame.size()));
  return std::string(reinterpret_cast<const char*>(header.data()), header.kSize) + sFrame;
}

std::string framed(const std::string& sPayload, std::uint16_t wKind, std::uint32_t uHeader,
                   std::uint64_t uNumber) {
  std::string sHeader(std::max(uHeader, 48U), 'h');
  qm_ci::Bitstream oBs;
  oBs.attach(sHeader.data(), 48);
  oBs.setFormat(qm_ci::QMCI_FMT_PACKET, 1);
  oBs.setHeaderLength(uHeader);
  oBs.setPictureType(wKind);
  oBs.setAccessFlags(3);
  oBs.setTimestamp(kFirstPushed + (uNumber - 1) * 40000);
  oBs.setFrameNumber(uNumber);
  qm_ci::hton(oBs.getQMCIBitstreamPtr());
  return tpkt(sHeader + sPayload);
}

std::string description(const qm_ci::StreamInfo& info) {
  std::vector<std::uint8_t> bytes(info.getBytes().begin(), info.getBytes().end());
  qm_ci::swapStreamInfo(bytes);
  return framed(std::string(bytes.begin(), bytes.end()), 5);
}

Pushing::Pushing(ScriptedManager& manager, const std::string& sProtocol, const qm_ci::StreamInfo& info)
    : m_manager(manager) {
  m_manager.answer("rpc_getStreamInfo", [sProtocol, info](const JParams&) {
    auto pAnswer = std::make_unique<JParams>();
    pAnswer->add("authoringApp", "tester");
    if (sProtocol.empty()) {
      qm_ci::writeStreamInfoR30(info, *pAnswer);
    } else {
      pAnswer->add("ProtocolVersion", std::string_view(sProtocol));
    }
    return pAnswer;
  });
}

void Pushing::push(const std::string& sWire, bool bStall) {
  join();
  m_manager.answer("rpc_remoteCopy", [this, sWire, bStall](const JParams& params) {
    std::int32_t iPort = 0;
    params.get("BackupPort", iPort, true);
    m_pusher = std::thread([sWire, bStall, iPort] {
      // The client may close at any time, before the connection too: that ends the pushing.
      thrownBy([&] {
        JTCPSocket socket;
        socket.connect(JInetAddr("127.0.0.1", static_cast<std::uint16_t>(iPort)));
        socket.write(sWire.data(), sWire.size());
        if (!bStall) {
          socket.shutdownWrite();
        }
        char end;
        socket.read(&end, 1);
      });
    });
    return std::make_unique<JParams>();
  });
}

void Pushing::join() {
  if (m_pusher.joinable()) {
    m_pusher.join();
  }
}

}  // namespace qm_test
