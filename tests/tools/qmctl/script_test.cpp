#include <fstream>
#include <gmock/gmock.h>
#include <set>

#include "qmactivexctrl/common/qmmembertable.h"
#include "tests/tools/qmctl/toolsupport.h"
#include "tools/qmctl/output.h"

namespace {

using qm_test::runTool;
using qm_test::SmallArchive;

struct Exchange {
  std::string sInput;
  std::string sAnswer;
};

void replaceAll(std::string& sText, const std::string& sOld, const std::string& sNew) {
  for (std::size_t uAt = sText.find(sOld); uAt != std::string::npos; uAt = sText.find(sOld, uAt)) {
    sText.replace(uAt, sOld.size(), sNew);
  }
}

/// Query ids are counted over the process.
int lastQueryId(SmallArchive& archive) {
  const auto run =
      runTool({"script"}, "[\"put\",\"Port\"," + std::to_string(archive.manager.getPort()) +
                              "]\n[\"put\",\"Blocking\",1]\n[\"Connect\"]\n[\"AlarmNamesQuery\"]\n");
  const std::string sLastLine = run.sOut.substr(run.sOut.rfind("\"result\":") + 9);
  return std::stoi(sLastLine);
}

std::vector<Exchange> readExchanges(SmallArchive& archive) {
  int iQueryId = lastQueryId(archive);
  std::ifstream file(QM_EVERY_MEMBER);
  std::vector<Exchange> exchanges;
  for (std::string sLine; std::getline(file, sLine);) {
    const std::size_t uArrow = sLine.find(" => ");
    if (!sLine.starts_with('[') && !sLine.starts_with('{')) {
      continue;
    }
    Exchange exchange{sLine.substr(0, uArrow), sLine.substr(uArrow + 4)};
    iQueryId += exchange.sAnswer.find("\"result\":QUERY") != std::string::npos ? 1 : 0;
    for (std::string* const pLine : {&exchange.sInput, &exchange.sAnswer}) {
      replaceAll(*pLine, "PORT", std::to_string(archive.manager.getPort()));
      replaceAll(*pLine, "QUERY", std::to_string(iQueryId));
    }
    exchanges.push_back(exchange);
  }
  return exchanges;
}

TEST(Script, AnswersEveryMember) {
  SmallArchive archive;
  const std::vector<Exchange> exchanges = readExchanges(archive);
  std::string sInput;
  for (const Exchange& exchange : exchanges) {
    sInput += exchange.sInput + "\n";
  }
  archive.manager.takeRequests();
  const auto run = runTool({"script"}, sInput);
  EXPECT_EQ(run.iStatus, 0);
  EXPECT_EQ(run.sError, "");

  std::istringstream answers(run.sOut);
  std::set<std::pair<std::string, QMInvokeKind>> called;
  for (const Exchange& exchange : exchanges) {
    SCOPED_TRACE(exchange.sInput);
    std::string sAnswer;
    ASSERT_TRUE(std::getline(answers, sAnswer));
    const auto answer = qmctl::Json::parse(sAnswer);
    EXPECT_EQ(answer, qmctl::Json::parse(exchange.sAnswer)) << sAnswer;
    if (answer.contains("member")) {
      called.emplace(answer["member"], exchange.sInput.starts_with("[\"get\"")   ? QMInvokeKind::kPropertyGet
                                       : exchange.sInput.starts_with("[\"put\"") ? QMInvokeKind::kPropertyPut
                                                                                 : QMInvokeKind::kMethod);
    }
  }
  std::string sMore;
  EXPECT_FALSE(std::getline(answers, sMore)) << sMore;
  for (const QMMember& member : getControlMembers()) {
    EXPECT_TRUE(called.contains({member.szName, member.eKind})) << member.szName;
  }
  EXPECT_THAT(archive.manager.requests(),
              testing::IsSupersetOf(
                  {R"(rpc_addFile(FileName="clip.asf", DiskSpaceName="disk", SourceName="gate", )"
                   R"(AlarmName="door", StartDate="whenever"))",
                   R"(rpc_protect(SourceName="gate", Fps=25, TsProtectedStart=12943620000000000, )"
                   R"(TsProtectedEnd=12943623600000000, TsValidStart=0, TsValidEnd=0, Details="why"))",
                   R"(rpc_removeAlarmByDate(SourceName="gate", Fps=25, AlarmName="door", )"
                   R"(TsAlarmIncident=12943620000000001))"}));
}

TEST(Script, GoesOnBehindWhatIsNoJson) {
  const auto run = runTool({"script"},
                           "\n"
                           "[\"GetNext\",\n"
                           "[\"\xFF\"]\n" +
                               std::string(100000, '[') +
                               "\n[]\n[5]\n[\"get\"]\n[\"ExtractString\",\"a\",\"a=\\\"\\ud83d\\\"\"]");
  std::istringstream answers(run.sOut);
  int iErrors = 0;
  for (std::string sAnswer; std::getline(answers, sAnswer);) {
    iErrors += qmctl::Json::parse(sAnswer).contains("error") ? 1 : 0;
  }
  EXPECT_EQ(iErrors, 8);
  EXPECT_EQ(run.iStatus, 0);
}

}  // namespace
