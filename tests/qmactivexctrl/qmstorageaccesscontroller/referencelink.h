#pragma once

#include <string>
#include <vector>

#include "coreapi/qmutils/rpc/jrpc.h"
#include "qmactivexctrl/qmstorageaccesscontroller/StorageAccessController3X4X.h"
#include "tests/support/scriptedmanager.h"

namespace qm_test {

/// A controller of the reference dialect with a Manager behind it, or with a client that isn't connected.
struct ReferenceLink {
  explicit ReferenceLink(bool bConnect = true)
      : client({.sHost = "127.0.0.1",
                .iPort = manager.getPort(),
                .bConnectNow = bConnect,
                .iPingPeriod = 0,
                .bStartThread = false}) {}

  /// All messages, the newest first.
  std::vector<std::string> messages() {
    std::vector<std::string> texts;
    for (std::string sText = control.getLastError(); !sText.empty(); sText = control.getLastError()) {
      texts.push_back(sText);
    }
    return texts;
  }

  ScriptedManager manager;
  JRPCClient client;
  StorageAccessController3X4X control{client, 60000};
};

inline std::string functionOf(const std::string& sRequest) {
  return sRequest.substr(0, sRequest.find('('));
}

}  // namespace qm_test
