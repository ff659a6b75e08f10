// Descriptions of streams and frames, for the record (no peer):
//
//   stream info, 4 KB, no XML    a record from bytes, its rates and sizes: under 5 us
//   stream info, R30             the same stream from the R30 network form
//   stream info, 4 KB, XML       a video description whose stream parameters are 4 KB of XML: under 100 us
//   data description, 4 KB, XML  the video description that a data stream's XML gives
//   frame                        a frame set up, filled by a reader, and given as buffers
#include <array>
#include <cstring>
#include <string>

#include "bench/support/compare.h"
#include "coreapi/qmci/bitstream.h"
#include "coreapi/qmci/streaminfo.h"
#include "coreapi/qmci/streaminfonet.h"
#include "coreapi/qmci/videoinfo.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmxml/qmxml.h"

namespace {

constexpr int kRuns = 2000;
constexpr std::size_t kDescription = 4096;

/// Microseconds that one call takes, in the mean.
double microseconds(const std::function<void()>& work) {
  work();
  const double total = qm_bench::seconds([&] {
    for (int i = 0; i < kRuns; ++i) {
      work();
    }
  });
  return total * 1e6 / kRuns;
}

/// Stream parameters of about 4 KB.
std::string streamParams() {
  std::string sParams;
  for (int i = 0; sParams.size() < kDescription; ++i) {
    sParams += "<Group" + std::to_string(i) + "><Quality>7</Quality><Name>camera</Name></Group" +
               std::to_string(i) + ">";
  }
  return sParams;
}

/// A bitmap description of about 4 KB, most of it extra bytes.
std::string bitmapXML() {
  return "<BITMAPINFOHEADER><biSize>40</biSize><biWidth>352</biWidth><biHeight>288</biHeight>"
         "<biPlanes>1</biPlanes><biBitCount>24</biBitCount><biCompression>0</biCompression>"
         "<biSizeImage>304128</biSizeImage><biXPelsPerMeter>0</biXPelsPerMeter>"
         "<biYPelsPerMeter>0</biYPelsPerMeter><biClrUsed>0</biClrUsed><biClrImportant>0</biClrImportant>"
         "<extraInformation>" +
         std::string(kDescription - 512, 'A') + "</extraInformation></BITMAPINFOHEADER>";
}

qm_ci::StreamInfo videoStream() {
  qm_ci::QMVideoInfoNoXml info;
  info.setMIMEType("video/x-qmv1");
  info.setPacketizedFormat("linear");
  info.setWidth(352);
  info.setHeight(288);
  info.setPictureRate(25, 1);
  info.setStreamParams(streamParams());
  return makeStreamInfo(qm_ci::QMCIVideoInfo(info.getCIInfo()), "AuthFrameSize=100, Name=\"camera\"");
}

}  // namespace

int main() {
  qm_err::setLogHook(nullptr);  // what a scenario logs on the way is not what is measured
  const QMXmlUse xml;
  const qm_ci::StreamInfo video = videoStream();
  qm_bench::report("stream info, 4 KB, no XML", microseconds([&] {
                     const qm_ci::StreamInfo info(video.getBytes());
                     qm_bench::keep(info.getMaxFrameSize());
                     qm_bench::keep(info.getFramePeriod());
                   }),
                   "us", 5);
  JParams r30;
  qm_ci::writeStreamInfoR30(video, r30);
  qm_bench::report("stream info, R30", microseconds([&] {
                     std::unique_ptr<qm_ci::StreamInfo> pInfo;
                     qm_bench::keep(qm_ci::readStreamInfoR30(r30, &pInfo));
                   }),
                   "us");
  qm_bench::report("stream info, 4 KB, XML", microseconds([&] {
                     const qm_ci::StreamInfo info(video.getBytes());
                     const auto description = info.getVideoInfo();
                     const qm_ci::QMVideoInfo parsed(*description);
                     qm_bench::keep(parsed.getWidth());
                   }),
                   "us", 100);
  const qm_ci::InfoBlock block = qm_ci::StreamDataInfo::make("video/x-bitmap", bitmapXML(), 25, 1, 304128);
  const qm_ci::StreamInfo data = makeStreamInfo(qm_ci::StreamDataInfo(block));
  qm_bench::report("data description, 4 KB, XML",
                   microseconds([&] { qm_bench::keep(data.getVideoInfo()->size()); }), "us", 100);

  const std::string sPayload(16384, 'p');
  qm_ci::Bitstream frame;
  frame.setMaxSize(65536, qm_ci::QMCI_FMT_NONE, 1);
  std::array<JIoBuf, 1> bufs;
  qm_bench::report("frame", microseconds([&] {
                     frame.setFormat(qm_ci::QMCI_FMT_PACKET, 1);
                     const qm_ci::PacketSpace space = frame.allocNextPacket();
                     std::memcpy(space.pBuf, sPayload.data(), sPayload.size());
                     frame.setPacketLength(static_cast<std::uint32_t>(sPayload.size()), -1);
                     qm_bench::keep(frame.getIoBufs(bufs));
                   }),
                   "us");
}
