#include "qmactivexctrl/qmstorageaccesscontroller/propertystream.h"

#include <array>
#include <utility>

#include "coreapi/platform/byteorder.h"
#include "qmactivexctrl/common/qmmembertable.h"

namespace {

/// The properties behind the extent, in the order of the stream.
constexpr std::array<std::int32_t, 5> kProperties{1, 2, 3, 4, 42};

class Writer {
 public:
  void put16(std::uint16_t uValue) { qm_platform::writeLE16(grow(sizeof uValue), uValue); }
  void put32(std::uint32_t uValue) { qm_platform::writeLE32(grow(sizeof uValue), uValue); }
  std::vector<std::uint8_t> take() { return std::move(m_bytes); }

 private:
  std::uint8_t* grow(std::size_t uSize) {
    m_bytes.resize(m_bytes.size() + uSize);
    return m_bytes.data() + m_bytes.size() - uSize;
  }

  std::vector<std::uint8_t> m_bytes;
};

/// Gives zeros from the first number on that the bytes don't hold.
class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : m_rest(bytes) {}

  std::uint16_t get16() {
    const std::uint8_t* const pFrom = advance(2);
    return pFrom != nullptr ? qm_platform::readLE16(pFrom) : std::uint16_t{0};
  }
  std::uint32_t get32() {
    const std::uint8_t* const pFrom = advance(4);
    return pFrom != nullptr ? qm_platform::readLE32(pFrom) : 0;
  }
  std::size_t getLeft() const noexcept { return m_rest.size(); }
  bool isGood() const noexcept { return m_bGood; }
  void fail() noexcept { m_bGood = false; }

 private:
  const std::uint8_t* advance(std::size_t uSize) {
    m_bGood = m_bGood && uSize <= m_rest.size();
    if (!m_bGood) {
      return nullptr;
    }
    const std::uint8_t* const pFrom = m_rest.data();
    m_rest = m_rest.subspan(uSize);
    return pFrom;
  }

  std::span<const std::uint8_t> m_rest;
  bool m_bGood = true;
};

void writeValue(Writer& writer, const QMVariant& value) {
  writer.put16(static_cast<std::uint16_t>(value.getType()));
  std::int32_t iValue = 0;
  std::u16string sText;
  if (value.getType() == QMVarType::VT_BSTR && value.get(sText)) {
    writer.put32(static_cast<std::uint32_t>(sText.size()));
    for (const char16_t unit : sText) {
      writer.put16(unit);
    }
  } else if (value.get(iValue)) {
    writer.put32(static_cast<std::uint32_t>(iValue));
  }
}

QMVariant readValue(Reader& reader, QMKind eKind) {
  const auto eType = static_cast<QMVarType>(reader.get16());
  if (eKind == QMKind::kLong && eType == QMVarType::VT_I4) {
    return QMVariant(static_cast<std::int32_t>(reader.get32()));
  }
  const std::uint32_t uUnits = eType == QMVarType::VT_BSTR ? reader.get32() : 0;
  if (eKind != QMKind::kString || eType != QMVarType::VT_BSTR || uUnits > reader.getLeft() / 2) {
    reader.fail();
    return {};
  }
  std::u16string sText;
  for (std::uint32_t i = 0; i < uUnits; ++i) {
    sText += static_cast<char16_t>(reader.get16());
  }
  return QMVariant(std::move(sText));
}

}  // namespace

namespace qm_control {

std::vector<std::uint8_t> writeProperties(IQMStorageAccessCtrl& control, const Extent& extent) {
  Writer writer;
  writer.put32(extent.uWidth);
  writer.put32(extent.uHeight);
  for (const std::int32_t iDispid : kProperties) {
    QMVariant value;
    findControlMember(iDispid, QMInvokeKind::kPropertyGet)->pCall(control, {}, &value);
    writeValue(writer, value);
  }
  return writer.take();
}

std::optional<Extent> readProperties(IQMStorageAccessCtrl& control, std::span<const std::uint8_t> bytes) {
  Reader reader(bytes);
  Extent extent;
  extent.uWidth = reader.get32();
  extent.uHeight = reader.get32();
  std::array<QMVariant, kProperties.size()> values;
  for (std::size_t i = 0; i < kProperties.size(); ++i) {
    const QMMember* const pPut = findControlMember(kProperties[i], QMInvokeKind::kPropertyPut);
    values[i] = readValue(reader, pPut->parameterKinds[0]);
  }
  if (!reader.isGood()) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < kProperties.size(); ++i) {
    findControlMember(kProperties[i], QMInvokeKind::kPropertyPut)
        ->pCall(control, std::span(&values[i], 1), nullptr);
  }
  return extent;
}

}  // namespace qm_control
