#pragma once

#include <string>

#include "coreapi/qmutils/rpc/jrpcserialisation.h"
#include "storage/TimeSpan.h"

namespace qm_test {

/// An object as it stands on the wire, under the name "X", its keys in order.
inline std::string textOf(const JRPCObject& object) {
  JParams params;
  JRPCSerialisation(&params).serialise("X", object);
  std::string sText;
  params.toText(sText);
  return sText;
}

/// Reads an object from such a text.
inline void readFrom(const std::string& sText, JRPCObject& object) {
  JRPCDeserialisation(sText).deserialise("X", object, true);
}

inline JTime at(std::uint64_t uMicroseconds) {
  return JTime::fromMicroseconds(uMicroseconds);
}

inline TimeSpan span(std::uint64_t uStart, std::uint64_t uEnd) {
  return {at(uStart), at(uEnd)};
}

/// 2011-03-03 and a time of day.
inline JTime march(std::uint64_t uHour, std::uint64_t uMinute = 0) {
  return JTime::fromUnixSeconds(1'299'110'400)
      .add(static_cast<std::int64_t>((uHour * 60 + uMinute) * 60 * JTime::kMicrosecondsPerSecond));
}

/// "start-end start-end" in microseconds.
template <class Spans>
std::string spansText(const Spans& spans) {
  std::string sText;
  for (const TimeSpan& each : spans) {
    sText += (sText.empty() ? "" : " ") + each.startDate.toText() + "-" + each.endDate.toText();
  }
  return sText;
}

}  // namespace qm_test
