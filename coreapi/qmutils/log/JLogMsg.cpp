#include "coreapi/qmutils/log/JLogMsg.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "coreapi/platform/byteorder.h"

namespace {

constexpr char kTagLevel = 'w';
constexpr char kTagTime = 'd';
constexpr char kTagProcess = 'p';
constexpr char kTagThread = 't';
constexpr char kTagInstance = 'i';
constexpr char kTagUnit = 'u';
constexpr char kTagHost = 'h';
constexpr char kTagLine = 'l';
constexpr char kTagFile = 'f';
constexpr char kTagClass = 'c';
constexpr char kTagMessage = 'm';

/// Bytes of a field before its value: the tag and the length.
constexpr std::size_t kHeaderSize = 5;

/// Input shorter than this is no record.
constexpr std::size_t kShortestRecord = 2;

/// Writes fields as long as they fit; the first one that doesn't ends the record.
class FieldWriter {
 public:
  FieldWriter(std::uint8_t* pBuffer, std::size_t uLimit) : m_pBuffer(pBuffer), m_uLimit(uLimit) {}

  void number(char tag, std::uint32_t uValue) {
    if (open(tag, sizeof uValue, sizeof uValue)) {
      qm_platform::writeBE32(m_pBuffer + m_uSize, uValue);
      m_uSize += sizeof uValue;
    }
  }

  void number64(char tag, std::uint64_t uValue) {
    if (open(tag, sizeof uValue, sizeof uValue)) {
      qm_platform::writeBE64(m_pBuffer + m_uSize, uValue);
      m_uSize += sizeof uValue;
    }
  }

  /// A string that goes in whole or not at all.
  void text(char tag, std::string_view sText) { text(tag, sText, sText.size()); }

  /// A string that is cut to what there is room for.
  void cutText(char tag, std::string_view sText) { text(tag, sText, 1); }

  std::size_t size() const { return m_uSize; }

 private:
  void text(char tag, std::string_view sText, std::size_t uLeast) {
    if (sText.empty() || !open(tag, sText.size(), uLeast)) {
      return;
    }
    const std::size_t uLength = std::min(sText.size(), m_uLimit - m_uSize);
    std::memcpy(m_pBuffer + m_uSize, sText.data(), uLength);
    m_uSize += uLength;
  }

  /// Writes the header of a field that has `uLength` bytes and needs `uLeast` of them to be there.
  bool open(char tag, std::size_t uLength, std::size_t uLeast) {
    const std::size_t uRoom = m_uLimit - m_uSize;
    if (m_bEnded || uRoom < kHeaderSize || uRoom - kHeaderSize < uLeast) {
      m_bEnded = true;
      return false;
    }
    m_pBuffer[m_uSize] = static_cast<std::uint8_t>(tag);
    qm_platform::writeBE32(m_pBuffer + m_uSize + 1,
                           static_cast<std::uint32_t>(std::min(uLength, uRoom - kHeaderSize)));
    m_uSize += kHeaderSize;
    return true;
  }

  std::uint8_t* m_pBuffer;
  std::size_t m_uLimit;
  std::size_t m_uSize = 0;
  bool m_bEnded = false;
};

/// Stores one field. `sValue` is what the input holds of the value, which may be less than `uLength`.
void storeField(JLog::Msg& record, char tag, std::size_t uLength, std::string_view sValue) {
  const auto number = [&](std::uint32_t& uTarget) {
    if (uLength == sizeof uTarget && sValue.size() == uLength) {
      uTarget = qm_platform::readBE32(sValue.data());
    }
  };
  switch (tag) {
    case kTagLevel:
      return number(record.uLevel);
    case kTagTime:
      if (uLength == sizeof(std::uint64_t) && sValue.size() == uLength) {
        record.time = JTime::fromMicroseconds(qm_platform::readBE64(sValue.data()));
      }
      return;
    case kTagProcess:
      return number(record.uProcessId);
    case kTagThread:
      return number(record.uThreadId);
    case kTagLine:
      return number(record.uLine);
    case kTagInstance:
      record.sInstance = sValue;
      return;
    case kTagUnit:
      record.sUnit = sValue;
      return;
    case kTagHost:
      record.sHost = sValue;
      return;
    case kTagFile:
      record.sFile = sValue;
      return;
    case kTagClass:
      record.sClass = sValue;
      return;
    case kTagMessage:
      record.sMessage = sValue;
      return;
    default:
      return;  // a field of a later version
  }
}

}  // namespace

std::size_t JLog::Msg::serialise(std::uint8_t* pBuffer, std::size_t uLimit) const {
  FieldWriter fields(pBuffer, uLimit);
  fields.number(kTagLevel, uLevel);
  fields.number64(kTagTime, time.getMicroseconds());
  fields.number(kTagProcess, uProcessId);
  fields.number(kTagThread, uThreadId);
  fields.text(kTagInstance, sInstance);
  fields.text(kTagUnit, sUnit);
  fields.text(kTagHost, sHost);
  fields.number(kTagLine, uLine);
  fields.cutText(kTagFile, sFile);
  fields.text(kTagClass, sClass);
  fields.cutText(kTagMessage, sMessage);
  return fields.size();
}

bool JLog::Msg::deserialise(const std::uint8_t* pData, std::size_t uSize, Msg& record) {
  record = {};
  if (uSize < kShortestRecord) {
    return false;
  }
  std::string_view sRest(reinterpret_cast<const char*>(pData), uSize);
  while (sRest.size() >= kHeaderSize) {
    const char tag = sRest.front();
    const std::size_t uLength = qm_platform::readBE32(sRest.data() + 1);
    sRest.remove_prefix(kHeaderSize);
    const std::string_view sValue = sRest.substr(0, uLength);
    storeField(record, tag, uLength, sValue);
    sRest.remove_prefix(sValue.size());
  }
  return true;
}
