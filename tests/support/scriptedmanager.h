#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "coreapi/qmutils/params/jparams.h"
#include "coreapi/qmutils/rpc/jrpctunnelservice.h"

namespace qm_test {

/// A Manager on a free port of the loopback, which answers what a table says. It speaks the protocol as every
/// service does, version and ping included; a function that isn't in the table fails as an unknown one does.
///
/// Any thread changes the table at any time; handlers run on the connections' threads. Its end closes what is
/// open and lets go what is stalled.
class ScriptedManager final : public JRPCTunnelService {
 public:
  /// What a function does: gives the answer's list, or null for no answer at all, so that the call times out;
  /// throws a JError for "FAILED".
  using Handler = std::function<std::unique_ptr<JParams>(const JParams&)>;

  /// Takes connections from now on.
  explicit ScriptedManager(const JRPCVersion& version = {4, 2});
  ~ScriptedManager() override;

  // The table. Each replaces what the function did before.

  /// A list, as it stands behind "OK ". One that doesn't parse makes the call fail.
  void answer(const std::string& sFunction, const std::string& sList = {});
  void answer(const std::string& sFunction, Handler handler);

  /// An answer with this "Error".
  void refuse(const std::string& sFunction, const std::string& sError);

  /// "FAILED" with this text.
  void fail(const std::string& sFunction, const std::string& sText);

  /// No answer: the call times out.
  void ignore(const std::string& sFunction);

  /// The end of the connection in the place of an answer.
  void hangUp(const std::string& sFunction);

  /// What the function did until now, but only once `release` has been called after this.
  void stall(const std::string& sFunction);
  void release();

  // What has come.

  /// The request lines so far, without the version calls and pings of the link itself.
  std::vector<std::string> requests() const;

  /// The same, and forgets them.
  std::vector<std::string> takeRequests();

  /// Waits until so many requests have come since the last `takeRequests`.
  void awaitRequests(std::size_t uCount) const;

  /// Ends all connections. New ones are taken.
  void hangUpAll();

  std::unique_ptr<JParams> parseRequest(std::string_view sLine, ConnectionId uConnection) override;
  bool dispatch(const std::string& sFunction, JParams& parameters, std::unique_ptr<JParams>& pAnswer,
                ConnectionId uConnection) override;
  void onConnectionOpened(ConnectionId uConnection) override;
  void onConnectionClosed(ConnectionId uConnection) override;

 private:
  Handler handlerOf(const std::string& sFunction) const;
  void awaitRelease(std::size_t uReleases);

  mutable std::mutex m_mutex;  ///< over all below
  mutable std::condition_variable m_changed;
  std::map<std::string, Handler> m_handlers;
  std::vector<std::string> m_requests;
  std::map<ConnectionId, Connection*> m_open;
  std::size_t m_uReleases = 0;
  bool m_bEnding = false;
};

}  // namespace qm_test
