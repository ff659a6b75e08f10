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
     "rpc_protect(Details=\"by \\\"op\\\"\\n\xC3\xA9\", TsValidEnd=0, TsValidStart=12943627200000001, "
     "TsProtectedEnd=12943623600000000, TsProtectedStart=12943620000000000, Fps=25, "
     R"(SourceName="cam 1"))"},
    {"Protect", 2, [](Control& c, const Dates& d) {
       return c.protect("c", 0, d[0], d[1], "never", "13/01/2011 00:00:00.000000UTC", ""); },
     R"(rpc_protect(Details="", TsValidEnd=0, TsValidStart=0, TsProtectedEnd=12943623600000000, )"
     R"(TsProtectedStart=12943620000000000, Fps=0, SourceName="c"))"},
    {"Unprotect", 2, [](Control& c, const Dates& d) { return c.unprotect("cam 1", -1, d[0], d[1]); },
     "rpc_unprotect(TsProtectedEnd=12943623600000000, TsProtectedStart=12943620000000000, Fps=-1, "
     R"(SourceName="cam 1"))"},
    {"Alarm", 3, [](Control& c, const Dates& d) { return c.alarm("cam 1", 25, "door", d[0], d[1], d[2]); },
     "rpc_alarm(TsAlarmEnd=12943627200000001, TsAlarmStart=12943623600000000, "
     R"(TsAlarmIncident=12943620000000000, AlarmName="door", Fps=25, SourceName="cam 1"))"},
    {"RemoveAlarmByInterval", 2, [](Control& c, const Dates& d) {
       return c.removeAlarmByInterval("c", 25, "door", d[0], d[1]); },
     "rpc_removeAlarmByInterval(TsAlarmEnd=12943623600000000, TsAlarmStart=12943620000000000, "
     R"(AlarmName="door", Fps=25, SourceName="c"))"},
    {"RemoveAlarmByDate", 1, [](Control& c, const Dates& d) { return c.removeAlarmByDate("c", 25, "door", d[0]); },
     R"(rpc_removeAlarmByDate(TsAlarmIncident=12943620000000000, AlarmName="door", Fps=25, )"
     R"(SourceName="c"))"},
    {"Erase", 2, [](Control& c, const Dates& d) { return c.erase("c", 25, d[0], d[1]); },
     R"(rpc_erase(TsEraseEnd=12943623600000000, TsEraseStart=12943620000000000, Fps=25, SourceName="c"))"},
    {"SetMetaData", 2, [](Control& c, const Dates& d) { return c.setMetaData("c", 25, d[0], d[1], "a=1,b=\"x\""); },
     R"(rpc_setMetaData(Params="a=1,b=\"x\"", TsIntervalEnd=12943623600000000, )"
     R"(TsIntervalStart=12943620000000000, Fps=25, SourceName="c"))"},
    {"UnsetMetaData", 2, [](Control& c, const Dates& d) { return c.unsetMetaData("c", 25, d[0], d[1], "a,b*"); },
     R"(rpc_unsetMetaData(Params="a,b*", TsIntervalEnd=12943623600000000, )"
     R"(TsIntervalStart=12943620000000000, Fps=25, SourceName="c"))"},
    {"Add File", 0, [](Control& c, const Dates&) { return c.addFile("a.asf", "disk", "cam 1", "", "soon"); },
     R"(rpc_addFile(StartDate="soon", AlarmName="", SourceName="cam 1", DiskSpaceName="disk", )"
     R"(FileName="a.asf"))"},
    {"'rpc_hideIntervals'", 0, [](Control& c, const Dates&) { return c.hideIntervals("c", 25, "any )(;text"); },
     R"(rpc_hideIntervals(Intervals="any )(;text", Fps=25, SourceName="c"))"},
    {"'rpc_unhideIntervals'", 0, [](Control& c, const Dates&) { return c.unhideIntervals("c", 25, ""); },
     R"(rpc_unhideIntervals(Intervals="", Fps=25, SourceName="c"))"},
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
  EXPECT_EQ(link.control.analyticsCreateQuery("c", 1, "p", ""), 0);
  EXPECT_THAT(link.messages(), testing::Each(testing::EndsWith("ailed: Not implemented")));
}

}  // namespace
