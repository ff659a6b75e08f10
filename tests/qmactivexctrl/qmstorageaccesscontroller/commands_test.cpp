#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "tests/qmactivexctrl/qmstorageaccesscontroller/referencelink.h"
#include "tests/support/logcapture.h"

namespace {

using qm_test::functionOf;
using qm_test::ReferenceLink;
using testing::ElementsAre;
using testing::IsEmpty;

using Control = IStorageAccessControl;
using Dates = std::vector<std::string>;

const Dates kDates = {"03/03/2011 10:00:00.000000UTC", "03/03/2011 11:00:00.000000UTC",
                      "03/03/2011 12:00:00.000001UTC"};

struct Command {
  std::string sPrefix;  ///< of its failures
  std::size_t uDates;   ///< that must be dates
  std::int32_t (*run)(Control& control, const Dates& dates);
  std::string sRequest;
};

// clang-format off
const Command kCommands[] = {
    {"Protect", 2, [](Control& c, const Dates& d) {
       return c.protect("cam 1", 25, d[0], d[1], kDates[2], "", "by \"op\"\n\xC3\xA9"); },
     R"(rpc_protect(SourceName="cam 1", Fps=25, TsProtectedStart=12943620000000000, TsProtectedEnd=12943623600000000, )"
     "TsValidStart=12943627200000001, TsValidEnd=0, Details=\"by \\\"op\\\"\\n\xC3\xA9\")"},
    {"Protect", 2, [](Control& c, const Dates& d) {
       return c.protect("c", 0, d[0], d[1], "never", "13/01/2011 00:00:00.000000UTC", ""); },
     R"(rpc_protect(SourceName="c", Fps=0, TsProtectedStart=12943620000000000, TsProtectedEnd=12943623600000000, )"
     R"(TsValidStart=0, TsValidEnd=0, Details=""))"},
    {"Unprotect", 2, [](Control& c, const Dates& d) { return c.unprotect("cam 1", -1, d[0], d[1]); },
     R"(rpc_unprotect(SourceName="cam 1", Fps=-1, TsProtectedStart=12943620000000000, TsProtectedEnd=12943623600000000))"},
    {"Alarm", 3, [](Control& c, const Dates& d) { return c.alarm("cam 1", 25, "door", d[0], d[1], d[2]); },
     R"(rpc_alarm(SourceName="cam 1", Fps=25, AlarmName="door", TsAlarmIncident=12943620000000000, )"
     R"(TsAlarmStart=12943623600000000, TsAlarmEnd=12943627200000001))"},
    {"RemoveAlarmByInterval", 2, [](Control& c, const Dates& d) {
       return c.removeAlarmByInterval("c", 25, "door", d[0], d[1]); },
     R"(rpc_removeAlarmByInterval(SourceName="c", Fps=25, AlarmName="door", TsAlarmStart=12943620000000000, )"
     R"(TsAlarmEnd=12943623600000000))"},
    {"RemoveAlarmByDate", 1, [](Control& c, const Dates& d) { return c.removeAlarmByDate("c", 25, "door", d[0]); },
     R"(rpc_removeAlarmByDate(SourceName="c", Fps=25, AlarmName="door", TsAlarmIncident=12943620000000000))"},
    {"Erase", 2, [](Control& c, const Dates& d) { return c.erase("c", 25, d[0], d[1]); },
     R"(rpc_erase(SourceName="c", Fps=25, TsEraseStart=12943620000000000, TsEraseEnd=12943623600000000))"},
    {"SetMetaData", 2, [](Control& c, const Dates& d) { return c.setMetaData("c", 25, d[0], d[1], "a=1,b=\"x\""); },
     R"(rpc_setMetaData(SourceName="c", Fps=25, TsIntervalStart=12943620000000000, TsIntervalEnd=12943623600000000, )"
     R"(Params="a=1,b=\"x\""))"},
    {"UnsetMetaData", 2, [](Control& c, const Dates& d) { return c.unsetMetaData("c", 25, d[0], d[1], "a,b*"); },
     R"(rpc_unsetMetaData(SourceName="c", Fps=25, TsIntervalStart=12943620000000000, TsIntervalEnd=12943623600000000, )"
     R"(Params="a,b*"))"},
    {"Add File", 0, [](Control& c, const Dates&) { return c.addFile("a.asf", "disk", "cam 1", "", "soon"); },
     R"(rpc_addFile(FileName="a.asf", DiskSpaceName="disk", SourceName="cam 1", AlarmName="", StartDate="soon"))"},
    {"'rpc_hideIntervals'", 0, [](Control& c, const Dates&) { return c.hideIntervals("c", 25, "any )(;text"); },
     R"(rpc_hideIntervals(SourceName="c", Fps=25, Intervals="any )(;text"))"},
    {"'rpc_unhideIntervals'", 0, [](Control& c, const Dates&) { return c.unhideIntervals("c", 25, ""); },
     R"(rpc_unhideIntervals(SourceName="c", Fps=25, Intervals=""))"},
};
// clang-format on

TEST(ArchiveCommands, GoToTheServerInOneRequest) {
  ReferenceLink link;
  for (const Command& command : kCommands) {
    link.manager.answer(functionOf(command.sRequest), "Other=1");
    EXPECT_EQ(command.run(link.control, kDates), 0);
    EXPECT_THAT(link.manager.takeRequests(), ElementsAre(command.sRequest));
    EXPECT_THAT(link.messages(), IsEmpty());
  }
}

TEST(ArchiveCommands, TellWhyTheyFailed) {
  const qm_test::LogCapture log;
  for (const Command& command : kCommands) {
    const std::string sFunction = functionOf(command.sRequest);
    ReferenceLink link;
    link.manager.fail(sFunction, "broken");
    EXPECT_EQ(command.run(link.control, kDates), -1);
    link.manager.refuse(sFunction, "100%s of \"it\"");
    EXPECT_EQ(command.run(link.control, kDates), -1);
    link.manager.ignore(sFunction);
    link.control.setTimeOut(1);
    EXPECT_EQ(command.run(link.control, kDates), -1);
    link.control.setTimeOut(-1);
    link.manager.hangUp(sFunction);
    EXPECT_EQ(command.run(link.control, kDates), -1);
    const std::string sRpc = command.sPrefix + " Failed: RPC";
    EXPECT_THAT(link.messages(), ElementsAre(sRpc, sRpc, "100%s of \"it\"", sRpc));
    EXPECT_TRUE(log.has(qm_err::kLogError, sRpc));

    ReferenceLink none(false);
    EXPECT_EQ(command.run(none.control, {"bad", "bad", "bad"}), -1);
    EXPECT_THAT(none.messages(), ElementsAre(command.sPrefix + " Failed: Not connected to Manager"));
  }
  EXPECT_TRUE(log.has(qm_err::kLogError, "Remote Manager Error: 100%s of \"it\"\n"));
  EXPECT_TRUE(log.has(qm_err::kLogException, "Time out!"));
}

TEST(ArchiveCommands, SendNothingWhenADateIsNone) {
  ReferenceLink link;
  for (const Command& command : kCommands) {
    for (std::size_t uDate = 0; uDate < command.uDates; ++uDate) {
      for (const char* szDate : {"", "03/03/1969 10:00:00.000000UTC"}) {
        Dates dates = kDates;
        dates[uDate] = szDate;
        EXPECT_EQ(command.run(link.control, dates), -1);
        EXPECT_THAT(link.messages(),
                    ElementsAre(command.sPrefix + " Failed: Bad format for Ntp date (see documentation)"));
      }
    }
  }
  EXPECT_THAT(link.manager.requests(), IsEmpty());
}

TEST(ArchiveCommands, ThatThereAreNotYetFail) {
  ReferenceLink link;
  std::string sText;
  std::int32_t iStatus = 0;
  EXPECT_EQ(link.control.getRecordingSize("c", 1, kDates[0], kDates[1]), 1);
  EXPECT_EQ(link.control.localCopy("c", 1, "f", kDates[0], kDates[1]), -1);
  EXPECT_EQ(link.control.remoteCopy("c", 1, "f", kDates[0], kDates[1]), -1);
  EXPECT_EQ(link.control.remoteCopyToProcess("c", 1, "f", "cat", nullptr, "", "", &sText, nullptr, iStatus),
            -1);
  EXPECT_EQ(link.control.analyticsCreateQuery("c", 1, "p", ""), 0);
  EXPECT_THAT(link.messages(), testing::Each(testing::EndsWith("ailed: Not implemented")));
}

}  // namespace
