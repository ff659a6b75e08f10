#include <netinet/in.h>

#include "coreapi/qmutils/socket/judpsocket.h"
#include "tests/coreapi/qmutils/socket/socket_test_support.h"

namespace {

using qm_test::Failure;
using qm_test::failureOf;
using qm_test::LogLines;
using qm_test::loopback;
using qm_test::thrownBy;

constexpr std::uint16_t kAnyPort = 0;

TEST(UDPSocket, CarriesDatagramsWhole) {
  JUDPSocket receiver(kAnyPort);
  JUDPSocket sender;
  sender.connect(loopback(receiver.getLocalPort()));
  const JIoBuf out[] = {{const_cast<char*>("head"), 4}, {const_cast<char*>("payload"), 7}};
  EXPECT_EQ(sender.writev(out, 2), 11U);
  EXPECT_EQ(sender.write("", 0), 0U);
  EXPECT_EQ(sender.sendto("direct", 6, 0, loopback(receiver.getLocalPort())), 6U);

  char head[4];
  char rest[64];
  JIoBuf in[] = {{head, sizeof head}, {rest, sizeof rest}};
  receiver.setReadTimeout(10'000);
  EXPECT_EQ(receiver.readv(in, 2), 11U);
  EXPECT_EQ(std::string(rest, 7), "payload");
  EXPECT_EQ(receiver.read(rest, sizeof rest), 0U) << "an empty datagram";
  std::unique_ptr<JSockAddr> pFrom;
  EXPECT_EQ(receiver.recvfrom(rest, sizeof rest, 0, &pFrom), 6U);
  EXPECT_EQ(JInetAddr(*pFrom).getPort(), sender.getLocalPort());
  receiver.setReadTimeout(0);
  EXPECT_EQ(thrownBy([&] { receiver.recvfrom(rest, sizeof rest, 0); }), "Time out!");
  EXPECT_EQ(receiver.getProtocol(), "udp");
  EXPECT_EQ(receiver.getMTU(), 65507U);
}

TEST(UDPSocket, ReportsADatagramThatDoesNotFit) {
  JUDPSocket receiver(kAnyPort);
  JUDPSocket sender;
  sender.connect(loopback(receiver.getLocalPort()));
  char small[4];
  JIoBuf in[] = {{small, 2}, {small + 2, 2}};
  for (int i = 0; i < 3; ++i) {
    sender.write("12345", 5);
  }
  sender.write("1234", 4);
  EXPECT_EQ(thrownBy([&] { receiver.readv(in, 2); }), "Buffer size too small!");
  EXPECT_EQ(failureOf([&] { receiver.read(small, sizeof small); }), (Failure{10040, "recv"}));
  EXPECT_EQ(failureOf([&] { receiver.recvfrom(small, sizeof small, 0); }), (Failure{10040, "recvfrom"}));
  EXPECT_EQ(receiver.readv(in, 2), 4U) << "one that fills the buffers fits";

  const std::string sLargest(65507, 'x');
  EXPECT_EQ(sender.write(sLargest.data(), sLargest.size()), sLargest.size());
  const std::string sTooLarge(65508, 'x');
  EXPECT_EQ(failureOf([&] { sender.write(sTooLarge.data(), sTooLarge.size()); }), (Failure{10040, "send"}));
}

TEST(UDPSocket, TakesTheFirstFreePortOfARange) {
  // Two neighbours of which the first is taken.
  std::unique_ptr<JUDPSocket> pTaken;
  std::uint16_t uPort = 0;
  for (;;) {
    pTaken = std::make_unique<JUDPSocket>(kAnyPort);
    uPort = pTaken->getLocalPort();
    if (uPort != 65535 && thrownBy([&] { JUDPSocket probe(static_cast<std::uint16_t>(uPort + 1)); }) == "") {
      break;
    }
  }
  const auto uNext = static_cast<std::uint16_t>(uPort + 1);
  testing::internal::CaptureStdout();
  const JUDPSocket socket(loopback(9), uPort, uNext);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Trying port " + std::to_string(uPort) +
                                                        " ... FAILED (10048)\nTrying port " +
                                                        std::to_string(uNext) + " ... OK\n");
  EXPECT_EQ(socket.getLocalPort(), uNext);
  EXPECT_EQ(socket.getRemoteAddress()->toString(), "127.0.0.1:9");

  testing::internal::CaptureStdout();
  EXPECT_EQ(failureOf([&] { JUDPSocket(loopback(9), uPort, uPort); }), (Failure{10048, "socket"}));
  EXPECT_EQ(failureOf([&] { JUDPSocket(loopback(9), uNext, uPort); }), (Failure{10022, "socket"}));
  EXPECT_EQ(failureOf([&] { JUDPSocket(JInetAddr(), 0, uPort); }).second, "connect");
  testing::internal::GetCapturedStdout();
}

TEST(BroadcastSocket, ReachesAPortOfEveryHost) {
  JUDPSocket receiver(kAnyPort);
  JBroadcastSocket sender(kAnyPort);
  EXPECT_EQ(sender.getProtocol(), "");
  EXPECT_TRUE(sender.getName().starts_with("BroadcastSocket"));
  const Failure failure = failureOf([&] { sender.send("all", 3, receiver.getLocalPort()); });
  if (failure.first == 10051 || failure.first == 10065) {
    GTEST_SKIP() << "no interface of this machine can broadcast";
  }
  ASSERT_EQ(failure.second, "");
  char buffer[8];
  receiver.setReadTimeout(10'000);
  EXPECT_EQ(receiver.read(buffer, sizeof buffer), 3U);
  EXPECT_EQ(failureOf([&] { JUDPSocket().sendto("x", 1, 0, JInetAddr("255.255.255.255", 9)); }),
            (Failure{10013, "sendto"}))
      << "only a broadcast socket may";
}

class MulticastSocket : public testing::Test {
 protected:
  static constexpr char kGroup[] = "239.255.77.7";
};

TEST_F(MulticastSocket, HearsItsGroupOnTheInterfaceOfItsBindAddress) {
  LogLines log;
  JIPMulticastSocket receiver(JInetAddr(kGroup, 0), false, true, loopback(kAnyPort));
  const std::uint16_t uPort = receiver.getLocalPort();
  const JInetAddr group(kGroup, uPort);
  JIPMulticastSocket second(group, true, true, loopback(uPort));
  JIPMulticastSocket sender(group, true, false, loopback(kAnyPort));
  EXPECT_EQ(receiver.getProtocol(), "ipm");

  const std::string sHandle = std::to_string(sender.getHandle());
  EXPECT_EQ(log.count(18, "Created IP Multicast socket '" + sHandle + "'"), 1);
  const auto lines = log.all();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& sLine) {
                            return sLine.starts_with("18 Joined IP multicast group '" + group.toString() +
                                                     "' on socket '" + sHandle + "', leaf socket '");
                          }),
            1);

  second.setTTL(0);
  second.sendto("heard", 5, 0, group);
  char buffer[32];
  for (JIPMulticastSocket* pSocket : {&receiver, &second}) {
    pSocket->setReadTimeout(10'000);
    EXPECT_EQ(pSocket->read(buffer, sizeof buffer), 5U);
    pSocket->setReadTimeout(0);
    EXPECT_EQ(thrownBy([&] { pSocket->read(buffer, sizeof buffer); }), "Time out!");
  }

  second.close();
  receiver.close();
  EXPECT_EQ(thrownBy([&] { JUDPSocket free(uPort); }), "") << "closing frees the port";

  // Over the loopback everything comes back whatever the socket wants, so only the setting can be looked at.
  int iLoop = -1;
  int iLength = sizeof iLoop;
  sender.getOption(IPPROTO_IP, IP_MULTICAST_LOOP, &iLoop, iLength);
  EXPECT_EQ(iLoop, 0);
}

TEST_F(MulticastSocket, FailsUnderTheNameOfTheStep) {
  LogLines log;
  const JInetAddr group(kGroup, 0);
  EXPECT_EQ(thrownBy([&] { JIPMulticastSocket(group, false, false, JInetAddr(0, kAnyPort)); }),
            "specify sender or receiver or both for ip multicast socket");
  EXPECT_EQ(failureOf([&] { JIPMulticastSocket(group, true, false, JInetAddr("192.0.2.1", 0)); }),
            (Failure{10049, "bind"}));
  const JInetAddr noGroup("10.0.0.1", 0);
  EXPECT_EQ(failureOf([&] { JIPMulticastSocket(noGroup, false, true, JInetAddr(0, kAnyPort)); }),
            (Failure{10022, "WSAJoinLeaf"}));
  const auto lines = log.all();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& sLine) {
                            return sLine.starts_with(
                                       "11 Could not join IP multicast group '10.0.0.1:0' on socket '") &&
                                   sLine.ends_with(
                                       "': system call error at function 'WSAJoinLeaf' : An "
                                       "invalid argument was supplied");
                          }),
            1);
}

}  // namespace
