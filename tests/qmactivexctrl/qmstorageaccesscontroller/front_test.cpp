#include <condition_variable>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/socket/jtcpsocket.h"
#include "qmactivexctrl/qmstorageaccesscontroller/ServerGeneration.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController.h"
#include "tests/support/logcapture.h"
#include "tests/support/scriptedmanager.h"

namespace {

using qm_test::ScriptedManager;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// Keeps the events in order, each with what a handler has to say.
class Host : public JRPCNotifyWithContext {
 public:
  void linkUp(JRPCController* /*pContext*/) override { add("up"); }
  void linkDown(JRPCController* /*pContext*/, JError* pError) override {
    add("down " + pError->getMessage());
  }

  std::vector<std::string> waitFor(std::size_t uCount) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_events.size() >= uCount; });
    return m_events;
  }

  std::function<std::string()> handler;

 private:
  void add(std::string sEvent) {
    sEvent += handler ? ": " + handler() : "";
    const std::lock_guard lock(m_mutex);
    m_events.push_back(sEvent);
    m_changed.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_events;
};

/// A port of the loopback on which nothing listens.
std::int32_t closedPort() {
  JTCPSocket socket;
  socket.bind(JInetAddr("127.0.0.1", 0));
  return socket.getLocalPort();
}

/// A front for a Manager that knows one source and takes no files.
struct Front {
  explicit Front(bool bBlocking, const JRPCVersion& version = {4, 2}) : manager(version) {
    manager.answer("rpc_getSourceMap", R"(jrpc_map_SourceMap__size=1, jrpc_map_SourceMap__map0_first="c", )"
                                       R"(jrpc_map_SourceMap__jrpc_vector_map0_second__size=0)");
    manager.refuse("rpc_addFile", "refused");
    front.setHost("127.0.0.1");
    front.setPort(manager.getPort());
    front.setBlocking(bBlocking);
  }
  StorageAccessCtrlInterface* operator->() { return &front; }

  std::string firstSource() { return front.getNext(front.sourcesQuery()); }
  std::string addFile(const std::string& sError = "refused") {
    manager.refuse("rpc_addFile", sError);
    return std::to_string(front.addFile("", "", "", "", ""));
  }

  ScriptedManager manager;
  Host host;
  StorageAccessController front{&host};
};

const char* const kSource = R"(SourceName="c",Fps="")";

TEST(ServerGeneration, IsSelectedByTheWeightedVersion) {
  struct Row {
    JRPCVersion version;
    ServerGeneration eExpected;
  };
  using enum ServerGeneration;
  for (const auto& [version, eExpected] : {Row{{2, 0}, k22SP6},
                                           {{2, 99}, k22SP6},
                                           {{0, 0}, k3X4X},
                                           {{1, 9}, k3X4X},
                                           {{3, 12}, k3X4X},
                                           {{3, 13}, k43},
                                           {{4, 2}, k3X4X},
                                           {{4, 3}, k43},
                                           {{5, 0}, k43},
                                           {{0x7FFFFFFF, 0}, k43}}) {
    EXPECT_EQ(selectGeneration(version.major, version.minor), eExpected) << version.toText();
  }
}

TEST(StorageAccessFront, WarnsOfADialectThatItDoesNotKnow) {
  for (const auto& [version, szDialect] :
       {std::pair{JRPCVersion{2, 0}, "2.2 SP6"}, {{4, 2}, ""}, {{5, 0}, "4.3"}}) {
    const qm_test::LogCapture log;
    Front front(true, version);
    ASSERT_EQ(front->connect(), 0);
    EXPECT_EQ(front.firstSource(), kSource);
    EXPECT_EQ(log.has(qm_err::kLogWarning, std::string("The dialect ") + szDialect +
                                               " of a server of version " + version.toText() +
                                               " isn't known; it is spoken to in the dialect 3.x/4.x."),
              *szDialect != '\0');
  }
}

TEST(StorageAccessFront, AnswersForItselfWithoutALink) {
  Front front(true);
  front->setPort(closedPort());
  EXPECT_EQ(front->connect(), -1);
  EXPECT_EQ(front->getStatus(), 0);
  EXPECT_EQ(front->getTimeOut(), 2500);
  std::string sText;
  std::int32_t iStatus = 0;
  IStorageAccessControl& c = front.front;
  EXPECT_THAT(
      (std::vector{c.getRecordingSize("", 0, "", ""), c.remoteCopy("", 0, "", "", ""),
                   c.remoteCopyToProcess("", 0, "", "", nullptr, "", "", &sText, &sText, iStatus),
                   c.localCopy("", 0, "", "", ""), c.unprotect("", 0, "", ""),
                   c.protect("", 0, "", "", "", "", ""), c.releaseQuery(1), c.alarm("", 0, "", "", "", ""),
                   c.erase("", 0, "", ""), c.addFile("", "", "", "", ""),
                   c.removeAlarmByInterval("", 0, "", "", ""), c.removeAlarmByDate("", 0, "", ""),
                   c.setMetaData("", 0, "", "", ""), c.unsetMetaData("", 0, "", "", ""),
                   c.hideIntervals("", 0, ""), c.unhideIntervals("", 0, ""),
                   c.analyticsGetQueryStatus(1, sText), c.analyticsStartQuery(1), c.analyticsStopQuery(1)}),
      Each(-1));
  EXPECT_THAT((std::vector{c.alarmLogQuery("", 0), c.protectedLogQuery("", 0), c.sourcesQuery(),
                           c.alarmNamesQuery(), c.databaseQuery(""), c.metaDataLogQuery("", 0),
                           c.analyticsSourceQuery("", 0), c.analyticsCreateQuery("", 0, "", "")}),
              Each(0));
  EXPECT_EQ(c.getNext(1) + c.getLastError(), "");
  EXPECT_THAT(front.manager.requests(), IsEmpty());
}

TEST(StorageAccessFront, KeepsTheLastMessageOfALostController) {
  Front front(true);
  ASSERT_EQ(front->connect(), 0);
  front.addFile("one");
  front.addFile("two");
  EXPECT_EQ(front->getLastError(), "two");
  front.addFile("three");
  front->disconnect();
  EXPECT_EQ(front->getLastError(), "three");
  EXPECT_EQ(front.addFile(), "-1");
  EXPECT_EQ(front->getLastError(), "three") << "at every call, and no new one comes";
  ASSERT_EQ(front->connect(), 0);
  front.addFile("four");
  ASSERT_EQ(front->connect(), 0);
  EXPECT_EQ(front->getLastError(), "") << "a new link forgets what was";
  front.addFile("five");
  front->rehash();
  EXPECT_EQ(front->getStatus(), 2);
  EXPECT_EQ(front->getLastError(), "");

  front.manager.ignore("rpc_addFile");
  front->setTimeOut(1);
  EXPECT_EQ(front->addFile("", "", "", "", ""), -1);
  EXPECT_EQ(front->getLastError(), "Add File Failed: RPC") << "the time-out reaches the link that stands";
  EXPECT_THAT(front.host.waitFor(0), IsEmpty()) << "a blocking connection tells nothing";
}

TEST(StorageAccessFront, FinishesAnOperationBeforeTheLinkGoes) {
  Front front(true);
  ASSERT_EQ(front->connect(), 0);
  front.manager.stall("rpc_addFile");
  std::thread operation([&] { EXPECT_EQ(front->addFile("", "", "", "", ""), -1); });
  front.manager.awaitRequests(1);
  std::thread end([&] { front->disconnect(); });
  front.manager.release();
  operation.join();
  end.join();
  EXPECT_EQ(front->getLastError(), "refused");
}

TEST(StorageAccessFront, LetsHandlersCallBackIn) {
  Front front(false);
  int iEvent = 0;
  front.host.handler = [&]() -> std::string {
    std::string sSeen = front.firstSource() + " ";
    switch (++iEvent) {
      case 1:  // the link has come up
        front->setPort(closedPort());
        front->connect();
        return sSeen;
      case 2:  // the next one couldn't be made
        front->setPort(front.manager.getPort());
        front->connect();
        return sSeen;
      default:
        sSeen += front.addFile();
        front->disconnect();
        return sSeen + front.firstSource() + front->getLastError();
    }
  };
  EXPECT_EQ(front->connect(), 0);
  EXPECT_THAT(front.host.waitFor(3), ElementsAre(std::string("up: ") + kSource + " ",
                                                 AllOf(HasSubstr("actively refused"), EndsWith(":  ")),
                                                 std::string("up: ") + kSource + " -1refused"));
  EXPECT_EQ(front->getStatus(), 0);
}

TEST(StorageAccessFront, DropsTheControllerBeforeItTellsThatTheLinkIsDown) {
  Front front(false);
  front.host.handler = [&] {
    return front.addFile() + front.firstSource() + std::to_string(front->getStatus());
  };
  front->connect();
  while (front->getStatus() != JRPCController::kUp) {
    std::this_thread::yield();
  }
  EXPECT_EQ(front.firstSource(), kSource) << "operations work as soon as the status says so";
  EXPECT_THAT(front.host.waitFor(1), ElementsAre(std::string("up: -1") + kSource + "2"));
  front.manager.hangUpAll();
  EXPECT_THAT(front.host.waitFor(2).back(), EndsWith(": -10")) << "told by the next ping";
  EXPECT_EQ(front->getLastError(), "refused");
  EXPECT_EQ(front->getLastError(), "refused");
}

/// Two threads of the host's and the handlers connect, ask and disconnect as they like.
TEST(StorageAccessFront, StandsConnectsAndDisconnectsFromAllSides) {
  constexpr int kRounds = 60;
  const qm_test::LogCapture log;
  Front front(false);
  int iEvents = 0;
  front.host.handler = [&] {
    front.firstSource();
    front.addFile();
    front->getLastError();
    if (++iEvents % 3 == 0) {
      front->disconnect();
    } else if (iEvents % 7 == 0) {
      front->connect();
    }
    return std::string();
  };
  std::thread other([&] {
    for (int iRound = 0; iRound < kRounds; ++iRound) {
      front->connect();
      front->setTimeOut(1000 + iRound);
      front->releaseQuery(front->sourcesQuery());
    }
  });
  for (int iRound = 0; iRound < kRounds; ++iRound) {
    front->connect();
    while (front->getStatus() == JRPCController::kConnecting) {
      std::this_thread::yield();
    }
    EXPECT_THAT(front.firstSource(), testing::AnyOf("", kSource));
    if (iRound % 2 == 0) {
      front->disconnect();
    }
  }
  other.join();
  front->forgetNotify();
  const std::size_t uEvents = front.host.waitFor(1).size();
  front->connect();
  front->setBlocking(true);
  EXPECT_EQ(front->connect(), 0);
  EXPECT_EQ(front.firstSource(), kSource);
  EXPECT_EQ(front.host.waitFor(0).size(), uEvents) << "a target that is forgotten is told nothing";
}

}  // namespace
