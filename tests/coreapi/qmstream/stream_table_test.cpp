#include "coreapi/qmstream/packetizer.h"
#include "coreapi/qmutils/params/jparams.h"
#include "tests/coreapi/qmstream/stream_test_support.h"

namespace {

using qm_stream::chooseProtocol;
using qm_stream::findProtocol;
using qm_test::thrownBy;
using qm_utils::Packetizer;

TEST(ProtocolTable, OffersTheBestFirst) {
  std::string sText = "old";
  EXPECT_EQ(qm_stream::protocolText(sText, 0), 2U);
  EXPECT_EQ(sText, "QM_TPKT,QM_RCPY30");
  EXPECT_EQ(qm_stream::protocolText(sText), 5U);
  EXPECT_EQ(sText, "QM_TPKT,QM_RCPY30,QM_SP40,QM_SP30,QM_22SP6");
  EXPECT_EQ(qm_stream::protocolText(sText, 2), 0U);
  EXPECT_EQ(sText, "");

  JParams params;
  std::vector<std::string> ids;
  EXPECT_FALSE(qm_stream::addSupportedProtocols(params, 2));
  EXPECT_FALSE(qm_stream::getSupportedProtocols(params, sText));
  EXPECT_FALSE(qm_stream::getSupportedProtocols(params, ids));
  EXPECT_TRUE(qm_stream::addSupportedProtocols(params, 1));
  EXPECT_TRUE(qm_stream::getSupportedProtocols(params, ids));
  EXPECT_EQ(ids, (std::vector<std::string>{"QM_SP40", "QM_SP30", "QM_22SP6"}));
}

TEST(ProtocolTable, ChoosesByItsOwnOrder) {
  struct {
    const char* szText;
    const char* szChosen;
  } const rows[] = {
      {"QM_22SP6,QM_RCPY30", "QM_RCPY30"},
      {" \tQM_SP30, QM_RCPY30\t,QM_TPKT,", "QM_TPKT"},
      {"QM_SP30 QM_SP40", "QM_SP40"},
      {"QM_TPKT2,qm_tpkt,QM_TPK", nullptr},
      {"", nullptr},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(chooseProtocol(row.szText), row.szChosen == nullptr ? nullptr : findProtocol(row.szChosen))
        << row.szText;
  }
  EXPECT_EQ(findProtocol(""), nullptr);
}

/// The packets of a frame, each as the texts of its pieces joined by "|".
std::vector<std::string> packetsOf(Packetizer& packetizer, std::uint32_t uMaxPacket,
                                   std::vector<std::string> data, std::uint64_t& uTotal) {
  char header[] = "h#";
  const JIoBuf headers[] = {{header, 1}, {header + 1, 1}};
  std::vector<JIoBuf> buffers;
  for (std::string& sData : data) {
    buffers.push_back({sData.data(), static_cast<std::uint32_t>(sData.size())});
  }
  const std::uint64_t uPackets =
      packetizer.init(uMaxPacket, headers, 2, buffers.data(), buffers.size(), &uTotal);
  std::vector<std::string> packets;
  JIoBuf* pBufs = buffers.data();
  std::size_t nBufs = 0;
  std::uint64_t uBytes = 0;
  std::uint64_t uSum = 0;
  for (header[1] = '1'; packetizer.next(&pBufs, &nBufs, &uBytes); ++header[1]) {
    std::string sPacket;
    for (std::size_t i = 0; i < nBufs; ++i) {
      sPacket.append(i == 0 ? "" : "|").append(static_cast<const char*>(pBufs[i].pBuf), pBufs[i].bufLength);
    }
    EXPECT_EQ(sPacket.size(), uBytes + nBufs - 1);
    uSum += uBytes;
    packets.push_back(sPacket);
  }
  EXPECT_EQ(packets.size(), uPackets);
  EXPECT_EQ(uSum, uTotal);
  return packets;
}

TEST(Packetizer, CutsAFrameIntoPackets) {
  using Texts = std::vector<std::string>;
  struct {
    const char* name;
    std::uint32_t uMaxPacket;
    Texts data;
    Texts packets;
  } const rows[] = {
      {"fits exactly", 7, {"ab", "cde"}, {"h|1|ab|cde"}},
      {"one byte more", 7, {"ab", "cdef"}, {"h|1|ab|cde", "h|2|f"}},
      {"many buffers in one packet", 6, {"a", "b", "c", "d", "efgh"}, {"h|1|a|b|c|d", "h|2|efgh"}},
      {"one buffer over many packets", 3, {"abc"}, {"h|1|a", "h|2|b", "h|3|c"}},
      {"empty buffers", 4, {"", "ab", "", "c", ""}, {"h|1||ab", "h|2||c|"}},
  };
  Packetizer packetizer;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::uint64_t uTotal = 0;
    EXPECT_EQ(packetsOf(packetizer, row.uMaxPacket, row.data, uTotal), row.packets);
  }
}

TEST(Packetizer, RefusesWhatCantBeCut) {
  Packetizer packetizer;
  char byte = 'x';
  JIoBuf one{&byte, 1};
  JIoBuf none{&byte, 0};
  JIoBuf* pBufs = &one;
  std::size_t nBufs = 0;
  EXPECT_EQ(packetizer.init(2, &one, 1, &one, 1, nullptr), 1U);
  struct {
    std::uint32_t uMaxPacket;
    const JIoBuf* pData;
    std::size_t uData;
  } const rows[] = {{0, &one, 1}, {9, nullptr, 1}, {9, &one, 0}, {9, &none, 1}, {1, &one, 1}};
  for (const auto& row : rows) {
    EXPECT_EQ(thrownBy([&] { packetizer.init(row.uMaxPacket, &one, 1, row.pData, row.uData, nullptr); }),
              "unknown error");
    EXPECT_FALSE(packetizer.next(&pBufs, &nBufs, nullptr)) << "no frame is left behind";
  }
  pBufs = nullptr;
  EXPECT_EQ(thrownBy([&] { packetizer.next(&pBufs, &nBufs, nullptr); }), "unknown error");
}

}  // namespace
