#pragma once

#include "coreapi/qmutils/rpc/jrpcserialisation.h"

/// Base of the objects of a search that are held by their abstract interfaces: the way of serialisers to the
/// part of them that travels.
class IStorageRpcObject {
 public:
  virtual ~IStorageRpcObject() = default;

  /// The part that travels; it lives as long as this object.
  virtual JRPCObject& getRpcObject() = 0;
  virtual const JRPCObject& getRpcObject() const = 0;

 protected:
  IStorageRpcObject() = default;
  IStorageRpcObject(const IStorageRpcObject&) = default;
  IStorageRpcObject& operator=(const IStorageRpcObject&) = default;
};
