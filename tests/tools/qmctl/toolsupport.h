#pragma once

#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/scriptedmanager.h"
#include "tools/qmctl/commandline.h"

namespace qm_test {

struct ToolRun {
  int iStatus;
  std::string sOut;
  std::string sError;
};

/// Runs a command line of the tool in this process, with a text as its standard input.
inline ToolRun runTool(const std::vector<std::string>& arguments, const std::string& sInput = {},
                       bool bTerminal = false) {
  std::vector<const char*> argv{"qmctl"};
  for (const std::string& sArgument : arguments) {
    argv.push_back(sArgument.c_str());
  }
  std::istringstream in(sInput);
  std::ostringstream out;
  std::ostringstream error;
  qmctl::Context context{{}, in, out, error, bTerminal, {}, false};
  const int iStatus = qmctl::runCommandLine(static_cast<int>(argv.size()), argv.data(), context);
  return {iStatus, out.str(), error.str()};
}

/// A Manager with one of everything: a recording of the source "g😀" from 10 to 11 o'clock on March 3, 2011.
/// It refuses to erase and carries out all other commands.
class SmallArchive {
 public:
  SmallArchive() {
    const std::string sSpan = "StartDate=12943620000000000, ";
    const std::string sItem = "StorageSearchResultSet_StorageSearchResultSet__TimeSpan_vec0__";
    manager.answer("rpc_dbQuery",
                   sItem + "DataType=\"video/x-qmv2\", " + sItem + "FPS=25, " + sItem +
                       "SourceName=\"g\xED\xA0\xBD\xED\xB8\x80\", " + sItem + sSpan + sItem +
                       "EndDate=12943623600000000, StorageSearchResultSet_StorageSearchResultSet__size=1");
    manager.answer("rpc_getAlarmNames",
                   "jrpc_set_AlarmNamesSet__size=1, jrpc_set_AlarmNamesSet__set0=\"door\"");
    manager.answer("rpc_getSourceMap",
                   "jrpc_map_SourceMap__size=1, jrpc_map_SourceMap__map0_first=\"gate\", "
                   "jrpc_map_SourceMap__jrpc_vector_map0_second__size=2, "
                   "jrpc_map_SourceMap__jrpc_vector_map0_second__vec0=25, "
                   "jrpc_map_SourceMap__jrpc_vector_map0_second__vec1=5");
    manager.answer("rpc_getAlarmLog",
                   record("AlarmLog", "Span", {"AlarmDate=12943620000000001", "Name=\"door\""}));
    manager.answer("rpc_getProtectedLog",
                   record("ProtectedLog", "Protected",
                          {"ValidityStartDate=12943620000000001", "ValidityEndDate=-1", "Details=\"why\""}));
    manager.answer("rpc_getMetaDataLog",
                   record("MetaDataLog", "Span", {"MetaData=\"lane=2,colour=\\\"red\\\"\""}));
    const std::string sSource =
        "AnalyticsSourceResultSet_AnalyticsSourceResultSet__AnalyticsSourceItem_vec0__";
    manager.answer("rpc_analyticsSourceQuery",
                   sSource + "SourceName=\"gate\", " + sSource + "FPS=25, " + sSource +
                       "AnalyticsSourceName=\"ga\", " + sSource + "GridWidth=22, " + sSource +
                       "GridHeight=18, " + sSource + "AnalyticsName=\"m\", " + sSource +
                       "AnalyticsType=\"motion\", AnalyticsSourceResultSet_AnalyticsSourceResultSet__size=1");
    for (const char* const szCommand :
         {"rpc_protect", "rpc_unprotect", "rpc_alarm", "rpc_removeAlarmByInterval", "rpc_removeAlarmByDate",
          "rpc_setMetaData", "rpc_unsetMetaData", "rpc_addFile", "rpc_hideIntervals",
          "rpc_unhideIntervals"}) {
      manager.answer(szCommand);
    }
    manager.refuse("rpc_erase", "it is protected");
  }

  std::vector<std::string> withServer(std::initializer_list<std::string> arguments) {
    std::vector<std::string> all{"--server",  "127.0.0.1", "--port", std::to_string(manager.getPort()),
                                 "--timeout", "30000"};
    all.insert(all.end(), arguments);
    return all;
  }

  ScriptedManager manager;

 private:
  /// A log of one record, over the recording's span.
  static std::string record(const std::string& sLog, const std::string& sSpan,
                            std::initializer_list<const char*> keys) {
    const std::string sRecord = sLog + "_" + sLog + "__" + sLog + "Record_set0__";
    std::string sList = sLog + "_" + sLog + "__size=1, " + sRecord + sSpan + "StartDate=12943620000000000, " +
                        sRecord + sSpan + "EndDate=12943623600000000";
    for (const char* const szKey : keys) {
      sList += ", " + sRecord + szKey;
    }
    return sList;
  }
};

}  // namespace qm_test
