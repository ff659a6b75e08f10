#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"
#include "tools/qmctl/linkevents.h"

namespace qmctl {

/// The options that stand before every command.
struct Settings {
  std::string sServer = "localhost";
  std::int32_t iPort = 11001;
  std::int32_t iTunnelPort = 0;  ///< 0 for none
  std::int32_t iTimeOut = 2500;  ///< milliseconds, -1 for no limit
  bool bJson = false;            ///< JSON lines in the place of tables
};

/// A control, and its connection to the Manager of the settings. For one thread.
class Session {
 public:
  /// Connects. Throws `Failure` (no connection), with the reason, when the link can't be made.
  explicit Session(const Settings& settings);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  JQMStorageAccessCtrl& getControl() noexcept { return m_control; }

  /// Runs a query, and hands each of its rows over. Throws `Failure` when the query fails, and when the link
  /// went down before the last row was read.
  using Query = std::function<void(JQMStorageAccessCtrl& control, std::int32_t& iQueryId)>;
  void forEachRow(const Query& query, const std::function<void(const std::string& sRow)>& take);

  /// Runs a command. Throws `Failure` when it fails.
  using Command = std::function<void(JQMStorageAccessCtrl& control, std::int32_t& iResult)>;
  void run(const Command& command);

 private:
  bool isConnected();
  [[noreturn]] void fail();

  std::shared_ptr<LinkEvents> m_pEvents = std::make_shared<LinkEvents>();
  JQMStorageAccessCtrl m_control;
};

}  // namespace qmctl
