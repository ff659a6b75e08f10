#pragma once

#include <cstdint>
#include <string>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/rpc/jrpccontroller.h"
#include "qmactivexctrl/common/iqmstorageaccessctrl.h"

/// The link members of a control, for code of the same process that holds connectors of several kinds. Each
/// is the control's member of the same name; see `IQMStorageAccessCtrl`. The control stays its owner's.
class JConnectorInterface {
 public:
  virtual QMStatus get_TimeOut(std::int32_t& TimeOut) = 0;
  virtual QMStatus put_TimeOut(std::int32_t TimeOut) = 0;
  virtual QMStatus get_Blocking(std::int32_t& Blocking) = 0;
  virtual QMStatus put_Blocking(std::int32_t Blocking) = 0;
  virtual QMStatus get_Status(std::int32_t& Status) = 0;
  virtual QMStatus get_Port(std::int32_t& Port) = 0;
  virtual QMStatus put_Port(std::int32_t Port) = 0;
  virtual QMStatus get_Server(std::u16string& Hostname) = 0;
  virtual QMStatus put_Server(const char16_t* Server) = 0;
  virtual QMStatus Rehash(std::int32_t& Result) = 0;
  virtual QMStatus Disconnect() = 0;
  virtual QMStatus Connect(std::int32_t& Result) = 0;
  virtual QMStatus GetId(std::int32_t& pInterface) = 0;

  // What the link tells the control.

  virtual void linkDown(JRPCController* pContext, JError* pError) = 0;
  virtual void linkUp(JRPCController* pContext) = 0;

 protected:
  ~JConnectorInterface() = default;
};
