#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// A socket address in the platform's raw form, of any family. Plain values: one thread at a time.
class JSockAddr {
 public:
  /// Address families by the numbers that stand in an address's first 16 bits.
  static constexpr int kFamilyInet = 2;
  static constexpr int kFamilyAtm = 22;

  /// Empty: no bytes.
  JSockAddr() = default;
  JSockAddr(const void* pBytes, std::size_t uLength);
  virtual ~JSockAddr() = default;
  JSockAddr(const JSockAddr&) = default;
  JSockAddr& operator=(const JSockAddr&) = default;

  /// Equal lengths and bytes; two empty addresses are equal.
  bool operator==(const JSockAddr& other) const noexcept { return m_bytes == other.m_bytes; }

  /// The address family; -1 when the address is empty.
  int getFamily() const noexcept;

  bool isEmpty() const noexcept { return m_bytes.empty(); }

  /// The raw bytes, as the system's calls take them. Valid until the address is changed.
  std::span<const std::uint8_t> getBytes() const noexcept { return m_bytes; }

  /// The address with its host's name, where a look-up finds one; else as `toNumeric`. An empty address, or
  /// one of an unknown family, gives the empty text. Cut to `uSize` bytes with its NUL. Doesn't throw.
  virtual void toName(char* szBuffer, std::size_t uSize) const;

  /// The text of `toNumeric`, at most 255 bytes of it.
  virtual std::string toString() const;

  /// The address in figures: "A.B.C.D:PORT", or twenty hexadecimal bytes joined by dots. As `toName` else.
  virtual void toNumeric(char* szBuffer, std::size_t uSize) const;

  /// Reads a socket URL; the caller owns the address, which doesn't tell the scheme. Schemes are "udp://" and
  /// "tcp://" (HOST:PORT), "ipmq://" (HOST, port 0), "rtsp://" (HOST[:PORT]/FILE, port 554 by default) and
  /// "svc://", which gives null. Throws `JTextError` for any other form, and what `JInetAddr::setAddress`
  /// throws for a host that can't be resolved.
  static std::unique_ptr<JSockAddr> fromURL(const std::string& sURL);

 protected:
  std::vector<std::uint8_t> m_bytes;
};

/// An interface of this machine that has an IPv4 address.
struct JInterfaceRecord;

/// An IPv4 address with a port.
class JInetAddr : public JSockAddr {
 public:
  /// Bytes of an address: family (16 bits), port (16 bits, network order), address (32 bits, network order),
  /// 8 bytes of zero.
  static constexpr std::size_t kSize = 16;

  /// The most interfaces that a list holds.
  static constexpr std::size_t kMaxInterfaces = 20;

  /// Empty.
  JInetAddr() = default;

  /// `setAddress`.
  JInetAddr(const std::string& sHost, std::uint16_t uPort);

  /// `setInterface` and `setPort`.
  JInetAddr(int iInterface, std::uint16_t uPort);
  explicit JInetAddr(const JSockAddr& other);

  /// Sets host and port. A dotted address isn't looked up; a name is, which takes as long as the resolver
  /// does. Throws JSysError "WSALookupServiceNextW('HOST')" with a number from 11001 to 11004 when the name
  /// can't be resolved; the address is empty then.
  void setAddress(const std::string& sHost, std::uint16_t uPort);

  /// As `setAddress`, never with a look-up: text that isn't a dotted address gives 255.255.255.255.
  void setNumericAddress(const std::string& sDotted, std::uint16_t uPort);

  /// Sets the address of an interface by its number, from 1, with port 0; below 1 the wildcard address.
  /// Throws JTextError for a number above the count, JSysError "WSAIoctl(SIO_ADDRESS_LIST_QUERY)" when the
  /// list can't be read.
  void setInterface(int iNumber);

  /// The port in host order; 0 when the address is empty.
  std::uint16_t getPort() const noexcept;

  /// An empty address stays empty.
  void setPort(std::uint16_t uPort) noexcept;

  /// The 32-bit address as it is stored, in network order; 0 when the address is empty.
  std::uint32_t getAddress() const noexcept;

  /// "A.B.C.D".
  std::string getAddressString() const;

  /// Appends a record for each interface, numbered from 1, at most `kMaxInterfaces`; returns their count.
  /// Throws JSysError "WSAIoctl()".
  static std::size_t getInterfaces(std::vector<JInterfaceRecord>& records);
  static std::size_t getInterfaceCount();

 private:
  void set(std::uint32_t uAddress, std::uint16_t uPort);
};

struct JInterfaceRecord {
  std::uint32_t uNumber;  ///< from 1
  std::uint32_t uFlags;   ///< 1 up, 2 broadcast, 4 loopback, 8 point to point, 16 multicast
  JInetAddr address;
  JInetAddr broadcast;
  JInetAddr netmask;
};

/// An IPv4 address with a port and the name of a media file.
class JRTSPAddr : public JInetAddr {
 public:
  JRTSPAddr() = default;
  JRTSPAddr(const std::string& sHost, std::uint16_t uPort, const std::string& sMediaFile);

  void setAddress(const std::string& sHost, std::uint16_t uPort, const std::string& sMediaFile);
  void setNumericAddress(const std::string& sDotted, std::uint16_t uPort, const std::string& sMediaFile);

  const std::string& getMediaFile() const noexcept { return m_sMediaFile; }
  void setMediaFile(const std::string& sMediaFile) { m_sMediaFile = sMediaFile; }

 private:
  std::string m_sMediaFile;
};

/// An ATM address: the 20 bytes of an NSAP number, the last of which is the selector.
class JSVCAddr : public JSockAddr {
 public:
  static constexpr std::size_t kNumberSize = 20;

  /// The number is all zero.
  JSVCAddr();

  /// Reads a number of twenty hexadecimal bytes, with or without dots between them. Throws JSysError
  /// "WSAStringToAddress" for any other text.
  explicit JSVCAddr(const std::string& sText);

  void setNumber(std::span<const std::uint8_t, kNumberSize> number);
  std::span<const std::uint8_t, kNumberSize> getNumber() const;

  /// Sets the number of this machine's ATM adapter. There is none on this platform: always throws JSysError
  /// "socket(AF_ATM,SOCK_RAW,ATMPROTO_AAL5)".
  [[noreturn]] void setLocal();

  void setSelector(std::uint8_t uSelector);
  std::uint8_t getSelector() const;

  /// True when all of the number but its selector is 0.
  bool isNull() const;
};
