#include <future>
#include <gmock/gmock.h>
#include <map>
#include <thread>

#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"
#include "qmactivexctrl/qmstorageaccesscontroller/environmenttext.h"
#include "tests/support/scriptedmanager.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Environment, IsSplitIntoTokens) {
  struct {
    const char* szText;
    std::vector<std::string> tokens;
  } const rows[] = {
      {R"(A=1 "B=x y" "C=\"q\"")", {"A=1", "B=x y", "C=\"q\""}},
      {"  A=1   B=2 ", {"A=1", "B=2"}},
      {"A=\"x y\" B\tC",
       {"A=\"x", "y\"", "B\tC"}},  // quotes count at the start of a token; tabs are characters
      {R"("" A)", {"", "A"}},
      {R"("A"B "C\\" "D\)", {"A", "B", "C\\", "D"}},
      {"\"", {}},
      {"", {}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(qm_control::splitEnvironment(row.szText), row.tokens) << row.szText;
  }
}

struct MemoryStorage : IQMPropertyStorage {
  bool writeStream(const std::string& sName, std::span<const std::uint8_t> bytes) override {
    streams[sName].assign(bytes.begin(), bytes.end());
    return true;
  }
  bool readStream(const std::string& sName, std::vector<std::uint8_t>& bytes) override {
    bytes = streams[sName];
    return !bytes.empty();
  }
  std::map<std::string, std::vector<std::uint8_t>> streams;
};

/// Server, Port, TimeOut, Blocking, TunnelPort.
auto propertiesOf(JQMStorageAccessCtrl& control) {
  std::tuple<std::u16string, std::int32_t, std::int32_t, std::int32_t, std::int32_t> all;
  auto& [sServer, iPort, iTimeOut, iBlocking, iTunnelPort] = all;
  control.get_Server(sServer);
  control.get_Port(iPort);
  control.get_TimeOut(iTimeOut);
  control.get_Blocking(iBlocking);
  control.get_TunnelPort(iTunnelPort);
  return all;
}

const std::tuple kDefaults(std::u16string(u"localhost"), 11001, 2500, 0, 0);

TEST(ControlProperties, AreStoredInTheirOrder) {
  JQMStorageAccessCtrl control;
  EXPECT_EQ(propertiesOf(control), kDefaults);
  control.put_Server(u"h\u00E9");
  control.put_Port(1);
  control.put_TimeOut(-1);
  control.put_Blocking(7);
  control.put_TunnelPort(2);
  MemoryStorage storage;
  EXPECT_EQ(control.Save(storage), QMStatus::kOk);
  const std::vector<std::uint8_t>& stream = storage.streams["Contents"];
  EXPECT_EQ(stream, (std::vector<std::uint8_t>{
                        0x95, 0x02, 0, 0, 0x95, 0x02, 0,   0,                          // 6.61 mm
                        8,    0,    2, 0, 0,    0,    'h', 0, 0xE9, 0,                 // Server
                        3,    0,    1, 0, 0,    0,    3,   0, 0xFF, 0xFF, 0xFF, 0xFF,  // Port, TimeOut
                        3,    0,    1, 0, 0,    0,    3,   0, 2,    0,    0,    0}));  // Blocking, ...
  JQMStorageAccessCtrl other;
  EXPECT_EQ(other.Load(storage), QMStatus::kOk);
  EXPECT_EQ(propertiesOf(other), std::tuple(std::u16string(u"h\u00E9"), 1, -1, 1, 2));
}

TEST(ControlProperties, StayWhenTheirStreamIsBad) {
  JQMStorageAccessCtrl control;
  std::vector<std::uint8_t> stream;
  control.put_Port(1);
  control.Save(stream);
  JQMStorageAccessCtrl other;
  for (std::size_t uSize = 0; uSize < stream.size(); ++uSize) {
    EXPECT_EQ(other.Load(std::span(stream).first(uSize)), QMStatus::kFail) << uSize;
  }
  for (const std::size_t uAt : {8U, 13U, 32U}) {  // a type, a length, a type
    std::vector<std::uint8_t> bad = stream;
    bad[uAt] = 0x7F;
    EXPECT_EQ(other.Load(bad), QMStatus::kFail) << uAt;
  }
  MemoryStorage empty;
  EXPECT_EQ(other.Load(empty), QMStatus::kFail);
  EXPECT_EQ(propertiesOf(other), kDefaults);
}

TEST(ControlId, GivesTheObjectToAnotherThreadOnce) {
  auto pControl = std::make_unique<JQMStorageAccessCtrl>();
  std::int32_t iFirst = 0;
  std::int32_t iSecond = 0;
  pControl->GetId(iFirst);
  pControl->GetId(iSecond);
  EXPECT_NE(iFirst, 0);
  EXPECT_NE(iFirst, iSecond);
  EXPECT_EQ(std::async(std::launch::async, JQMStorageAccessCtrl::fromId, iFirst).get(), pControl.get());
  EXPECT_EQ(JQMStorageAccessCtrl::fromId(iFirst), nullptr);
  pControl.reset();
  EXPECT_EQ(JQMStorageAccessCtrl::fromId(iSecond), nullptr);
}

TEST(ControlMembers, TakeNullTextsAndTextsOfTheirOwnResult) {
  JQMStorageAccessCtrl control;
  std::int32_t iResult = 5;
  EXPECT_EQ(control.Erase(nullptr, 1, nullptr, nullptr, iResult), QMStatus::kOk);
  EXPECT_EQ(iResult, -1);
  EXPECT_EQ(control.DatabaseQuery(nullptr, iResult), QMStatus::kOk);
  EXPECT_EQ(iResult, 0);
  control.put_Server(nullptr);
  std::u16string sText = u"x";
  control.get_Server(sText);
  EXPECT_EQ(sText, u"");
  sText = u"a=\"\xD83D\xDE00\"";
  control.ExtractString(u"a", sText.c_str(), sText);
  EXPECT_EQ(sText, u"\xD83D\xDE00");
  control.ExtractString(u"b", u"a=\"x\"", sText);
  EXPECT_EQ(sText, u"");
}

/// Connects, calls back, and leaves, all from inside of `LinkUp`.
class Host : public IQMStorageAccessCtrlEvents {
 public:
  explicit Host(JQMStorageAccessCtrl& control) : m_control(control) {}

  void LinkUp() override {
    std::int32_t iQueryId = 0;
    m_control.AlarmNamesQuery(iQueryId);
    m_control.GetNext(iQueryId, sRow);
    m_control.Disconnect();
    m_control.get_Status(iStatus);
    done.set_value();
  }
  void LinkDown(const char16_t* /*TextError*/) override {}

  std::promise<void> done;
  std::u16string sRow;
  std::int32_t iStatus = -1;

 private:
  JQMStorageAccessCtrl& m_control;
};

TEST(ControlEvents, LetTheHostCallBack) {
  qm_test::ScriptedManager manager;
  manager.answer("rpc_getAlarmNames",
                 "jrpc_set_AlarmNamesSet__size=1, jrpc_set_AlarmNamesSet__set0=\"door\"");
  JQMStorageAccessCtrl control;
  const auto pHost = std::make_shared<Host>(control);
  control.getEvents().Advise(pHost);
  control.put_Server(u"127.0.0.1");
  control.put_Port(manager.getPort());
  std::int32_t iResult = -1;
  control.Connect(iResult);
  EXPECT_EQ(iResult, 0);
  pHost->done.get_future().wait();
  EXPECT_EQ(pHost->sRow, u"door");
  EXPECT_EQ(pHost->iStatus, 0);
}

/// A control may go at any moment of a connection that is being made; no event may come afterwards.
TEST(ControlEvents, EndWithTheControl) {
  qm_test::ScriptedManager manager;
  for (int i = 0; i < 50; ++i) {
    JQMStorageAccessCtrl control;
    const auto pHost = std::make_shared<Host>(control);
    const std::uint32_t uCookie = control.getEvents().Advise(pHost);
    control.put_Server(u"127.0.0.1");
    control.put_Port(manager.getPort());
    std::int32_t iResult = -1;
    control.Connect(iResult);
    if (i % 2 == 0) {
      control.getEvents().Unadvise(uCookie);
    }
    for (int j = 0; j < i * 10; ++j) {
      std::this_thread::yield();
    }
  }
}

}  // namespace
