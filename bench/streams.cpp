// What the stream protocols cost over a bare loop of recv with a buffer of 256 KiB. Over a loopback
// connection a thread sends the same bytes to both in blocks of about 1 MiB: frames of the protocol, or for
// the bare loop the same bytes that nobody looks into. Ours reads each frame into its buffer and counts it. A
// ratio of 0.9 means 11% more time.
//
//   remote copy, tpkt      frames of 1, 4, 16, 64 and 200 KiB

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "bench/support/compare.h"
#include "coreapi/qmstream/rcpyheader.h"
#include "coreapi/qmstream/streamfactory.h"
#include "coreapi/qmstream/tpktheader.h"
#include "coreapi/qmutils/log/JLog.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"

namespace {

constexpr std::size_t kKibi = 1024;
constexpr std::size_t kBlock = kKibi * kKibi;
constexpr std::size_t kVolume = 384 * kBlock;
constexpr std::size_t kPeerBuffer = 256 * kKibi;
constexpr int kPairs = 9;
constexpr double kGoal = 0.9;
constexpr double kGoalOfMiddle = 0.75;  // of 16 KiB, where neither reading ahead nor sheer size helps most

/// What is sent: frames without the end of the stream, again and again.
struct Traffic {
  std::string sBlock;
  std::size_t uBlocks;
  std::size_t uFrames;
};

Traffic trafficOf(const std::string& sId, std::size_t uFrame) {
  const auto uSize = static_cast<std::uint32_t>(uFrame);
  qm_stream::RemoteCopyFrameHeader copy;
  copy.setFrameSize(uSize);
  const qm_stream::TPKT tpkt(uSize);
  const bool bCopy = sId == "QM_RCPY30";
  std::string sFrame(reinterpret_cast<const char*>(bCopy ? copy.data() : tpkt.data()),
                     bCopy ? qm_stream::RemoteCopyFrameHeader::kSize : qm_stream::TPKT::kSize);
  sFrame.append(uFrame, 'x');
  Traffic traffic;
  const std::size_t uInBlock = std::max<std::size_t>(1, kBlock / sFrame.size());
  for (std::size_t i = 0; i < uInBlock; ++i) {
    traffic.sBlock += sFrame;
  }
  traffic.uBlocks = kVolume / traffic.sBlock.size();
  traffic.uFrames = traffic.uBlocks * uInBlock;
  return traffic;
}

/// Seconds from the start of sending until `receive` has taken everything from the accepted connection.
template <typename Receive>
double transfer(const Traffic& traffic, Receive receive) {
  JTCPSocket listener{std::uint16_t{0}};
  JTCPSocket client;
  client.connect(JInetAddr("127.0.0.1", listener.getLocalPort()));
  std::unique_ptr<JSocket> pAccepted = listener.accept();
  std::thread sender;
  const double dSeconds = qm_bench::seconds([&] {
    sender = std::thread([&] {
      for (std::size_t i = 0; i < traffic.uBlocks; ++i) {
        client.write(traffic.sBlock.data(), traffic.sBlock.size());
      }
    });
    receive(std::move(pAccepted));
  });
  sender.join();
  return dSeconds;
}

void receiveFrames(const std::string& sId, const Traffic& traffic, std::size_t uFrame,
                   std::unique_ptr<JSocket> pAccepted) {
  const auto pReceiver =
      qm_stream::findProtocol(sId)->createISocket(std::move(pAccepted), nullptr, "", nullptr, "");
  std::array<char, qm_stream::RemoteCopyFrameHeader::kSize> header;
  std::vector<char> payload(uFrame);
  const std::uint32_t uInline = sId == "QM_RCPY30" ? header.size() : 0;
  for (std::size_t i = 0; i < traffic.uFrames; ++i) {
    JIoBuf buffers[] = {{header.data(), uInline}, {payload.data(), static_cast<std::uint32_t>(uFrame)}};
    if (pReceiver->readv(buffers, 2) != uInline + uFrame) {
      std::abort();
    }
  }
}

void receiveBytes(const Traffic& traffic, std::unique_ptr<JSocket> pAccepted) {
  std::vector<char> buffer(kPeerBuffer);
  for (std::size_t uLeft = traffic.uBlocks * traffic.sBlock.size(); uLeft != 0;) {
    const ssize_t iRead = recv(pAccepted->getHandle(), buffer.data(), buffer.size(), 0);
    if (iRead <= 0) {
      std::abort();
    }
    uLeft -= static_cast<std::size_t>(iRead);
  }
}

}  // namespace

int main() {
  JLog::init();
  JLog::deleteOutputs();
  for (const std::string& sId : {std::string("QM_RCPY30"), std::string("QM_TPKT")}) {
    for (const std::size_t uKibi : {1, 4, 16, 64, 200}) {
      const std::size_t uFrame = uKibi * kKibi;
      const Traffic traffic = trafficOf(sId, uFrame);
      const std::string sName =
          (sId == "QM_TPKT" ? "tpkt " : "remote copy ") + std::to_string(uKibi) + " KiB";
      qm_bench::compare(
          {sName, "recv", uKibi == 16 ? kGoalOfMiddle : kGoal, kPairs},
          [&] {
            return transfer(traffic, [&](std::unique_ptr<JSocket> pAccepted) {
              receiveFrames(sId, traffic, uFrame, std::move(pAccepted));
            });
          },
          [&] {
            return transfer(traffic, [&](std::unique_ptr<JSocket> pAccepted) {
              receiveBytes(traffic, std::move(pAccepted));
            });
          });
    }
  }
}
