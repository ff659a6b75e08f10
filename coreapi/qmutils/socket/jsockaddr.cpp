#include "coreapi/qmutils/socket/jsockaddr.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "coreapi/platform/byteorder.h"
#include "coreapi/platform/netname.h"
#include "coreapi/platform/socketerror.h"
#include "coreapi/qmutils/error/jerror.h"

namespace {

// An IPv4 address as it lies in memory; 8 bytes of zero follow. The family is in the machine's own order.
//
// | offset | size | field                  |
// |--------|------|------------------------|
// | 0      | 2    | family                 |
// | 2      | 2    | port, network order    |
// | 4      | 4    | address, network order |
constexpr std::size_t kPortOffset = 2;
constexpr std::size_t kAddressOffset = 4;
constexpr std::size_t kInetNeeded = 8;

// An ATM address as it lies in memory, in the form that the Windows Sockets ATM annex publishes.
//
// | offset | size | field                        | value here  |
// |--------|------|------------------------------|-------------|
// | 0      | 2    | family                       | 22          |
// | 4      | 4    | type of the number           | 2, an NSAP  |
// | 8      | 4    | digits of the number         | 20          |
// | 12     | 20   | number; the last is selector | 0           |
// | 32     | 4    | layer 2 protocol             | -1, any     |
// | 40     | 4    | layer 3 protocol             | -2, absent  |
// | 60     | 4    | type of the higher layer     | -2, absent  |
constexpr std::size_t kAtmSize = 76;
constexpr std::size_t kAtmNumberType = 4;
constexpr std::size_t kAtmDigits = 8;
constexpr std::size_t kAtmNumber = 12;
constexpr std::size_t kAtmSelector = kAtmNumber + JSVCAddr::kNumberSize - 1;
constexpr std::size_t kAtmLayer2 = 32;
constexpr std::size_t kAtmLayer3 = 40;
constexpr std::size_t kAtmHigherLayer = 60;
constexpr std::uint32_t kNsap = 2;
constexpr std::uint32_t kAny = 0xFFFFFFFF;
constexpr std::uint32_t kAbsent = 0xFFFFFFFE;

[[noreturn]] void failSocket(qm_platform::SocketError error, const std::string& sFunction) {
  QM_THROW(JSysError, error | JSysError::kSocketClass, sFunction.c_str());
}

std::uint16_t portOf(std::span<const std::uint8_t> bytes) noexcept {
  return qm_platform::readBE16(bytes.data() + kPortOffset);
}

std::uint32_t addressOf(std::span<const std::uint8_t> bytes) noexcept {
  std::uint32_t uAddress = 0;
  std::memcpy(&uAddress, bytes.data() + kAddressOffset, sizeof uAddress);
  return uAddress;
}

std::string numberText(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string sText;
  for (std::size_t i = 0; i < JSVCAddr::kNumberSize; ++i) {
    const std::uint8_t uByte = bytes[kAtmNumber + i];
    if (i != 0) {
      sText += '.';
    }
    sText += kDigits[uByte >> 4];
    sText += kDigits[uByte & 15];
  }
  return sText;
}

bool isInet(const JSockAddr& address) noexcept {
  return address.getFamily() == JSockAddr::kFamilyInet && address.getBytes().size() >= kInetNeeded;
}

bool isAtm(const JSockAddr& address) noexcept {
  return address.getFamily() == JSockAddr::kFamilyAtm && address.getBytes().size() >= kAtmSize;
}

}  // namespace

JSockAddr::JSockAddr(const void* pBytes, std::size_t uLength) {
  if (pBytes != nullptr) {
    const auto* pFirst = static_cast<const std::uint8_t*>(pBytes);
    m_bytes.assign(pFirst, pFirst + uLength);
  }
}

int JSockAddr::getFamily() const noexcept {
  std::uint16_t uFamily = 0;
  if (m_bytes.size() < sizeof uFamily) {
    return -1;
  }
  std::memcpy(&uFamily, m_bytes.data(), sizeof uFamily);
  return uFamily;
}

void JSockAddr::toName(char* szBuffer, std::size_t uSize) const {
  std::string sName;
  if (isInet(*this) && qm_platform::resolveAddress(addressOf(m_bytes), sName) == 0) {
    qm_err::copyText(szBuffer, uSize, sName + ':' + std::to_string(portOf(m_bytes)));
    return;
  }
  toNumeric(szBuffer, uSize);
}

void JSockAddr::toNumeric(char* szBuffer, std::size_t uSize) const {
  std::string sText;
  if (isInet(*this)) {
    sText = qm_platform::addressText(addressOf(m_bytes)) + ':' + std::to_string(portOf(m_bytes));
  } else if (isAtm(*this)) {
    sText = numberText(m_bytes);
  }
  qm_err::copyText(szBuffer, uSize, sText);
}

std::string JSockAddr::toString() const {
  char szText[256];
  toNumeric(szText, sizeof szText);
  return szText;
}

JInetAddr::JInetAddr(const std::string& sHost, std::uint16_t uPort) {
  setAddress(sHost, uPort);
}

JInetAddr::JInetAddr(int iInterface, std::uint16_t uPort) {
  setInterface(iInterface);
  setPort(uPort);
}

JInetAddr::JInetAddr(const JSockAddr& other) : JSockAddr(other) {}

void JInetAddr::set(std::uint32_t uAddress, std::uint16_t uPort) {
  m_bytes.assign(kSize, 0);
  const std::uint16_t uFamily = kFamilyInet;
  std::memcpy(m_bytes.data(), &uFamily, sizeof uFamily);
  qm_platform::writeBE16(m_bytes.data() + kPortOffset, uPort);
  std::memcpy(m_bytes.data() + kAddressOffset, &uAddress, sizeof uAddress);
}

void JInetAddr::setAddress(const std::string& sHost, std::uint16_t uPort) {
  m_bytes.clear();
  std::uint32_t uAddress = 0;
  if (!qm_platform::parseAddress(sHost, uAddress)) {
    const qm_platform::SocketError error = qm_platform::resolveHost(sHost, uAddress);
    if (error != 0) {
      failSocket(error, "WSALookupServiceNextW('" + sHost + "')");
    }
  }
  set(uAddress, uPort);
}

void JInetAddr::setNumericAddress(const std::string& sDotted, std::uint16_t uPort) {
  std::uint32_t uAddress = 0xFFFFFFFF;
  qm_platform::parseAddress(sDotted, uAddress);
  set(uAddress, uPort);
}

void JInetAddr::setInterface(int iNumber) {
  if (iNumber < 1) {
    set(0, 0);
    return;
  }
  std::vector<qm_platform::NetworkInterface> interfaces;
  const qm_platform::SocketError error = qm_platform::listInterfaces(interfaces);
  if (error != 0) {
    failSocket(error, "WSAIoctl(SIO_ADDRESS_LIST_QUERY)");
  }
  const auto uNumber = static_cast<std::size_t>(iNumber);
  if (uNumber > interfaces.size()) {
    QM_THROW(JTextError, "invalid interface number : %d/%d", iNumber, static_cast<int>(interfaces.size()));
  }
  set(interfaces[uNumber - 1].uAddress, 0);
}

std::uint16_t JInetAddr::getPort() const noexcept {
  return m_bytes.size() < kInetNeeded ? std::uint16_t{0} : portOf(m_bytes);
}

void JInetAddr::setPort(std::uint16_t uPort) noexcept {
  if (m_bytes.size() >= kInetNeeded) {
    qm_platform::writeBE16(m_bytes.data() + kPortOffset, uPort);
  }
}

std::uint32_t JInetAddr::getAddress() const noexcept {
  return m_bytes.size() < kInetNeeded ? 0 : addressOf(m_bytes);
}

std::string JInetAddr::getAddressString() const {
  return qm_platform::addressText(getAddress());
}

std::size_t JInetAddr::getInterfaces(std::vector<JInterfaceRecord>& records) {
  std::vector<qm_platform::NetworkInterface> interfaces;
  const qm_platform::SocketError error = qm_platform::listInterfaces(interfaces);
  if (error != 0) {
    failSocket(error, "WSAIoctl()");
  }
  const std::size_t uCount = std::min(interfaces.size(), kMaxInterfaces);
  for (std::size_t i = 0; i < uCount; ++i) {
    JInterfaceRecord& record = records.emplace_back();
    record.uNumber = static_cast<std::uint32_t>(i + 1);
    record.uFlags = interfaces[i].uFlags;
    record.address.set(interfaces[i].uAddress, 0);
    record.broadcast.set(interfaces[i].uBroadcast, 0);
    record.netmask.set(interfaces[i].uNetmask, 0);
  }
  return uCount;
}

std::size_t JInetAddr::getInterfaceCount() {
  std::vector<JInterfaceRecord> records;
  return getInterfaces(records);
}

JRTSPAddr::JRTSPAddr(const std::string& sHost, std::uint16_t uPort, const std::string& sMediaFile)
    : JInetAddr(sHost, uPort), m_sMediaFile(sMediaFile) {}

void JRTSPAddr::setAddress(const std::string& sHost, std::uint16_t uPort, const std::string& sMediaFile) {
  JInetAddr::setAddress(sHost, uPort);
  m_sMediaFile = sMediaFile;
}

void JRTSPAddr::setNumericAddress(const std::string& sDotted, std::uint16_t uPort,
                                  const std::string& sMediaFile) {
  JInetAddr::setNumericAddress(sDotted, uPort);
  m_sMediaFile = sMediaFile;
}

JSVCAddr::JSVCAddr() {
  m_bytes.assign(kAtmSize, 0);
  const auto put = [&](std::size_t uOffset, auto value) {
    std::memcpy(m_bytes.data() + uOffset, &value, sizeof value);
  };
  put(0, std::uint16_t{kFamilyAtm});
  put(kAtmNumberType, kNsap);
  put(kAtmDigits, std::uint32_t{kNumberSize});
  put(kAtmLayer2, kAny);
  put(kAtmLayer3, kAbsent);
  put(kAtmHigherLayer, kAbsent);
}

JSVCAddr::JSVCAddr(const std::string& sText) : JSVCAddr() {
  const char* pNext = sText.data();
  const char* const pEnd = pNext + sText.size();
  for (std::size_t i = 0; i < kNumberSize; ++i) {
    if (i != 0 && pNext != pEnd && *pNext == '.') {
      ++pNext;
    }
    constexpr std::ptrdiff_t kDigits = 2;
    const char* const pStop = pEnd - pNext < kDigits ? pEnd : pNext + kDigits;
    const auto result = std::from_chars(pNext, pStop, m_bytes[kAtmNumber + i], 16);
    if (result.ec != std::errc() || result.ptr != pNext + kDigits) {
      failSocket(qm_platform::kSocketInvalidArgument, "WSAStringToAddress");
    }
    pNext = result.ptr;
  }
  if (pNext != pEnd) {
    failSocket(qm_platform::kSocketInvalidArgument, "WSAStringToAddress");
  }
}

void JSVCAddr::setNumber(std::span<const std::uint8_t, kNumberSize> number) {
  std::copy(number.begin(), number.end(), m_bytes.begin() + kAtmNumber);
}

std::span<const std::uint8_t, JSVCAddr::kNumberSize> JSVCAddr::getNumber() const {
  return std::span<const std::uint8_t>(m_bytes).subspan<kAtmNumber, kNumberSize>();
}

void JSVCAddr::setLocal() {
  failSocket(qm_platform::kSocketFamilyNotSupported, "socket(AF_ATM,SOCK_RAW,ATMPROTO_AAL5)");
}

void JSVCAddr::setSelector(std::uint8_t uSelector) {
  m_bytes[kAtmSelector] = uSelector;
}

std::uint8_t JSVCAddr::getSelector() const {
  return m_bytes[kAtmSelector];
}

bool JSVCAddr::isNull() const {
  const auto number = getNumber().first<kNumberSize - 1>();
  return std::all_of(number.begin(), number.end(), [](std::uint8_t uByte) { return uByte == 0; });
}
