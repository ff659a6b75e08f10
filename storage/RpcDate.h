#pragma once

#include <cstdint>
#include <string_view>

#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "coreapi/qmutils/time/jtime.h"

/// Dates as members of objects on the wire: the count of microseconds, an unsigned 64-bit integer.
namespace qm_storage {

inline void serialiseDate(JRPCSerialisation& target, std::string_view sName, JTime date) {
  target.serialise(sName, date.getMicroseconds());
}

/// A required read.
inline void deserialiseDate(JRPCDeserialisation& source, std::string_view sName, JTime& date) {
  std::uint64_t uMicroseconds = 0;
  source.deserialise(sName, uMicroseconds, true);
  date = JTime::fromMicroseconds(uMicroseconds);
}

}  // namespace qm_storage
