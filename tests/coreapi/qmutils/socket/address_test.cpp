#include <algorithm>
#include <array>

#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_test::Failure;
using qm_test::failureOf;
using qm_test::thrownBy;

std::string numeric(const JSockAddr& address) {
  return address.toString();
}

TEST(SocketURL, GivesTheAddressThatItNames) {
  struct {
    const char* url;
    const char* address;
    const char* mediaFile;
  } const rows[] = {
      {"tcp://127.0.0.1:11001", "127.0.0.1:11001", nullptr},
      {"udp://10.1.2.3:5", "10.1.2.3:5", nullptr},
      {"tcp://127.0.0.1: 80 and more", "127.0.0.1:80", nullptr},
      {"tcp://localhost:7", "127.0.0.1:7", nullptr},
      {"ipmq://239.1.2.3", "239.1.2.3:0", nullptr},
      {"rtsp://10.0.0.1/cam/1", "10.0.0.1:554", "cam/1"},
      {"rtsp://10.0.0.1:8554/", "10.0.0.1:8554", ""},
      {"rtsp://10.0.0.1:8554/a:b", "10.0.0.1:8554", "a:b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url);
    const auto pAddress = JSockAddr::fromURL(row.url);
    ASSERT_NE(pAddress, nullptr);
    EXPECT_EQ(numeric(*pAddress), row.address);
    const auto* pRtsp = dynamic_cast<const JRTSPAddr*>(pAddress.get());
    ASSERT_EQ(pRtsp != nullptr, row.mediaFile != nullptr);
    if (pRtsp != nullptr) {
      EXPECT_EQ(pRtsp->getMediaFile(), row.mediaFile);
    }
  }
  EXPECT_EQ(JSockAddr::fromURL("svc://" + std::string(1000, 'x')), nullptr);
}

TEST(SocketURL, RefusesWhatItCannotRead) {
  const std::string bad = "bad ip url format";
  struct {
    std::string url;
    std::string error;
  } const rows[] = {
      {"tcp://127.0.0.1", bad},
      {"tcp://127.0.0.1:", bad},
      {"udp://127.0.0.1:x", bad},
      {"tcp://127.0.0.1:65536", bad},
      {"tcp://127.0.0.1:-1", bad},
      {"tcp://" + std::string(256, '1') + ":1", bad},
      {"rtsp://10.0.0.1", "bad rtsp url format, missing mediafile"},
      {"rtsp://10.0.0.1:x/file", bad},
      {"rtsp://" + std::string(256, '1'), bad},
      {"TCP://127.0.0.1:1", "unknown url type"},
      {"", "unknown url type"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url);
    EXPECT_EQ(thrownBy([&] { JSockAddr::fromURL(row.url); }), row.error);
  }
  EXPECT_NE(thrownBy([] { JSockAddr::fromURL("ipmq://239.1.2.3:5000"); }), "")
      << "the colon and what follows belong to the host's name";
}

TEST(InetAddress, FailsUnderTheNameOfTheLookUp) {
  JInetAddr address("127.0.0.1", 1);
  EXPECT_EQ(failureOf([&] { address.setAddress("", 1); }), (Failure{11001, "WSALookupServiceNextW('')"}));
  EXPECT_TRUE(address.isEmpty());
  const Failure failure = failureOf([&] { address.setAddress("no-such-host.invalid", 1); });
  EXPECT_TRUE(failure.first >= 11001 && failure.first <= 11004) << failure.first;
  EXPECT_EQ(failure.second, "WSALookupServiceNextW('no-such-host.invalid')");
}

TEST(InetAddress, HoldsItsPartsInTheirOrder) {
  JInetAddr address("1.2.3.4", 0x1234);
  const std::array<std::uint8_t, 8> bytes = {2, 0, 0x12, 0x34, 1, 2, 3, 4};
  ASSERT_EQ(address.getBytes().size(), 16U);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), address.getBytes().begin()));
  address.setPort(65535);
  EXPECT_EQ(address.getPort(), 65535);
  EXPECT_EQ(address.getAddressString(), "1.2.3.4");
  address.setAddress("255.255.255.255", 1);
  EXPECT_EQ(address.getAddress(), 0xFFFFFFFFU);
  address.setNumericAddress("no address", 1);
  EXPECT_EQ(numeric(address), "255.255.255.255:1");

  EXPECT_EQ(JSockAddr(), JInetAddr());
  EXPECT_NE(JSockAddr(), address);
  EXPECT_EQ(JSockAddr().getFamily(), -1);
  EXPECT_EQ(numeric(JSockAddr("\2\0\1", 3)), "") << "an address that is cut off";

  char szText[6] = "stale";
  JSockAddr().toNumeric(szText, sizeof szText);
  EXPECT_STREQ(szText, "");
  address.toNumeric(szText, sizeof szText);
  EXPECT_STREQ(szText, "255.2");
  char szName[256];
  JInetAddr("127.0.0.1", 9).toName(szName, sizeof szName);
  EXPECT_TRUE(std::string(szName).ends_with(":9")) << szName;
}

TEST(InetAddress, ComesFromAnInterfaceByItsNumber) {
  EXPECT_EQ(numeric(JInetAddr(0, 80)), "0.0.0.0:80");
  std::vector<JInterfaceRecord> records(1);
  const std::size_t uCount = JInetAddr::getInterfaces(records);
  ASSERT_EQ(records.size(), uCount + 1) << "the list is appended to";
  ASSERT_EQ(JInetAddr::getInterfaceCount(), uCount);
  const auto found = std::find_if(records.begin() + 1, records.end(), [](const JInterfaceRecord& record) {
    return record.address.getAddressString() == "127.0.0.1";
  });
  ASSERT_NE(found, records.end());
  EXPECT_EQ(found->uFlags & 5U, 5U) << "up and loopback";
  EXPECT_EQ(found->netmask.getAddressString(), "255.0.0.0");
  EXPECT_EQ(numeric(JInetAddr(static_cast<int>(found->uNumber), 80)), "127.0.0.1:80");
  EXPECT_EQ(thrownBy([] { JInetAddr(1000, 80); }),
            "invalid interface number : 1000/" + std::to_string(uCount));
}

TEST(ATMAddress, IsTwentyBytesInASystemRecord) {
  JSVCAddr address;
  EXPECT_TRUE(address.isNull());
  EXPECT_EQ(address.getFamily(), 22);
  EXPECT_EQ(address.getBytes().size(), 76U);
  address.setSelector(0xAB);
  EXPECT_TRUE(address.isNull()) << "the selector doesn't count";
  EXPECT_EQ(numeric(address), "00.00.00.00.00.00.00.00.00.00.00.00.00.00.00.00.00.00.00.ab");
  const std::string sText = "47.00.05.80.ff.e1.00.00.00.f2.15.11.2b.00.20.48.1b.2b.08.01";
  EXPECT_EQ(numeric(JSVCAddr(sText)), sText);
  std::string sPlain = sText;
  std::erase(sPlain, '.');
  EXPECT_EQ(JSVCAddr(sPlain), JSVCAddr(sText));
  for (const std::string& sBad : {sText + "0", sText.substr(1), sText.substr(0, 58), std::string("x")}) {
    EXPECT_EQ(failureOf([&] { const JSVCAddr bad(sBad); }), (Failure{10022, "WSAStringToAddress"})) << sBad;
  }
  EXPECT_EQ(failureOf([&] { address.setLocal(); }).second, "socket(AF_ATM,SOCK_RAW,ATMPROTO_AAL5)");
}

}  // namespace
