#pragma once

#include <cstdint>

#include "coreapi/qmutils/rpc/jrpccontroller.h"
#include "qmactivexctrl/qmstorageaccesscontroller/IStorageAccessControl.h"

/// What a host's object holds: the link to a Manager and what can be asked of its archive, in one.
///
/// The link's events reach the `JRPCNotifyWithContext` that the implementation was made with.
class StorageAccessCtrlInterface : public virtual JRPCControllerInterface, public IStorageAccessControl {
 public:
  /// In milliseconds. Stands for the next link, and takes effect at once for one that is up.
  void setTimeOut(std::int32_t iTimeOut) override = 0;

  /// Makes this forget the target of its events. None reaches it any more when this returns, so this waits
  /// for a delivery under way, unless it is called from inside of one: hold no lock that the target may want.
  virtual void forgetNotify() = 0;
};
