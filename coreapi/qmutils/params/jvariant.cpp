#include "coreapi/qmutils/params/jvariant.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "coreapi/qmutils/params/paramreader.h"
#include "coreapi/qmutils/params/paramvalue.h"
#include "coreapi/qmutils/params/paramwriter.h"

namespace {

using qm_utils::newBytes;
using qm_utils::newText;
using qm_utils::ParamValue;

std::string_view orEmpty(const char* szText) {
  return szText != nullptr ? szText : "";
}

/// The result of a conversion, or TypeMismatchError.
template <class T>
T converted(std::optional<T> value, const JVariant& variant, JVariant::Type eWanted) {
  if (!value) {
    QM_THROW(JVariant::TypeMismatchError, std::string(orEmpty(variant.getName())), eWanted,
             variant.getType());
  }
  return std::move(*value);
}

}  // namespace

JVariant::JVariant(std::string_view sName, const ParamValue& value, JVariant* pNext)
    : m_szName(newText(sName)), m_pNext(pNext) {
  switch (value.type) {
    case T_STRING:
      m_value.text = newText(value.bytes()).release();
      break;
    case T_BINARY:
    case T_BLOB:
      m_value.bytes = newBytes(value.bytes()).release();
      m_uBinarySize = static_cast<std::uint32_t>(value.size);
      break;
    case T_DOUBLE:
      m_value.number = value.number;
      break;
    case T_BOOL:
    case T_INT:
    case T_EMPTY:
      m_value.integer = value.integer;
      break;
  }
  m_eType = value.type;
}

JVariant::JVariant(std::string_view sName, double dValue, JVariant* pNext)
    : JVariant(sName, ParamValue::ofDouble(dValue), pNext) {}

JVariant::JVariant(Type eType, std::string_view sName, std::int64_t iValue, JVariant* pNext)
    : JVariant(sName, ParamValue::ofInteger(iValue, eType), pNext) {}

JVariant::JVariant(std::string_view sName, std::string_view sText, JVariant* pNext)
    : JVariant(sName, ParamValue::ofText(sText), pNext) {}

JVariant::JVariant(std::string_view sName, const char* szText, Adopt eAdopt, JVariant* pNext)
    : m_pNext(pNext) {
  const bool bAdopt = eAdopt == Adopt::Yes && szText != nullptr;
  std::unique_ptr<char[]> szOwned(bAdopt ? const_cast<char*>(szText) : newText(orEmpty(szText)).release());
  m_szName = newText(sName);
  m_value.text = szOwned.release();
  m_eType = T_STRING;
}

JVariant::JVariant(std::string_view sName, const std::uint8_t* pBytes, std::uint32_t uSize, Type eType,
                   Adopt eAdopt, JVariant* pNext)
    : m_pNext(pNext) {
  m_uBinarySize = pBytes != nullptr ? uSize : 0;
  const bool bAdopt = eAdopt == Adopt::Yes && pBytes != nullptr;
  const auto* const pChars = reinterpret_cast<const char*>(pBytes);
  std::unique_ptr<std::uint8_t[]> pOwned(bAdopt ? const_cast<std::uint8_t*>(pBytes)
                                                : newBytes({pChars, m_uBinarySize}).release());
  m_szName = newText(sName);
  m_value.bytes = pOwned.release();
  m_eType = eType == T_BLOB ? T_BLOB : T_BINARY;
}

JVariant::JVariant(const JVariant& other) : m_pNext(other.m_pNext) {
  if (other.m_szName != nullptr) {
    JVariant copy(other, other.getName());
    swapContent(copy);
  }
}

JVariant::JVariant(const JVariant& other, std::string_view sNewName)
    : JVariant(sNewName, other.value(), other.m_pNext) {}

JVariant::JVariant(JVariant&& other) noexcept : m_pNext(other.m_pNext) {
  swapContent(other);
}

JVariant& JVariant::operator=(const JVariant& other) {
  if (this != &other) {
    JVariant copy(other);
    swapContent(copy);
    m_pNext = copy.m_pNext;
  }
  return *this;
}

JVariant& JVariant::operator=(JVariant&& other) noexcept {
  if (this != &other) {
    clear();
    swapContent(other);
    m_pNext = other.m_pNext;
  }
  return *this;
}

void JVariant::clear() noexcept {
  if (m_eType == T_STRING) {
    delete[] m_value.text;
  } else if (m_eType == T_BINARY || m_eType == T_BLOB) {
    delete[] m_value.bytes;
  }
  m_szName.reset();
  m_value.integer = 0;
  m_uBinarySize = 0;
  m_eType = T_EMPTY;
}

/// All but `next`.
void JVariant::swapContent(JVariant& other) noexcept {
  std::swap(m_szName, other.m_szName);
  std::swap(m_value, other.m_value);
  std::swap(m_uBinarySize, other.m_uBinarySize);
  std::swap(m_eType, other.m_eType);
}

void JVariant::deleteSuccessors() noexcept {
  while (m_pNext != nullptr) {
    const std::unique_ptr<JVariant> pGone(m_pNext);
    m_pNext = pGone->m_pNext;
  }
}

ParamValue JVariant::value() const noexcept {
  switch (m_eType) {
    case T_STRING:
      return ParamValue::ofText(m_value.text);
    case T_BINARY:
    case T_BLOB:
      return ParamValue::ofBytes(m_value.bytes, m_uBinarySize, m_eType);
    case T_DOUBLE:
      return ParamValue::ofDouble(m_value.number);
    case T_BOOL:
    case T_INT:
    case T_EMPTY:
      break;
  }
  return ParamValue::ofInteger(m_value.integer, m_eType);
}

bool JVariant::operator==(const JVariant& other) const noexcept {
  return value() == other.value();
}

double JVariant::asDouble() const {
  return converted(qm_utils::toDouble(value()), *this, T_DOUBLE);
}

std::int64_t JVariant::asInt64() const {
  return converted(qm_utils::toInt64(value()), *this, T_INT);
}

std::int32_t JVariant::asInt32() const {
  return converted(qm_utils::toInt32(value()), *this, T_INT);
}

std::unique_ptr<char[]> JVariant::asText() const {
  return newText(converted(qm_utils::toString(value()), *this, T_STRING));
}

void JVariant::asText(std::string& sText) const {
  sText = converted(qm_utils::toString(value()), *this, T_STRING);
}

bool JVariant::asBool() const {
  return converted(qm_utils::toBool(value()), *this, T_BOOL);
}

std::unique_ptr<std::uint8_t[]> JVariant::asBytes(std::uint32_t* puSize) const {
  const std::string_view sBytes = converted(qm_utils::toBytes(value()), *this, T_BINARY);
  std::unique_ptr<std::uint8_t[]> pCopy = newBytes(sBytes);
  if (puSize != nullptr) {
    *puSize = static_cast<std::uint32_t>(sBytes.size());
  }
  return pCopy;
}

std::size_t JVariant::getMaxLength() const noexcept {
  std::size_t length = 0;
  for (const JVariant* pVariant = this; pVariant != nullptr; pVariant = pVariant->m_pNext) {
    length += pVariant == this ? 0 : 2;
    length += qm_utils::maxTextLength(orEmpty(pVariant->getName()).size(), pVariant->value());
  }
  return length;
}

std::size_t JVariant::toText(char* szBuf) const {
  qm_utils::ParamWriter writer(szBuf);
  return writeChain(writer);
}

void JVariant::toText(std::string& sText) const {
  std::string sNew;
  qm_utils::ParamWriter writer(sNew);
  writeChain(writer);
  sText = std::move(sNew);
}

std::size_t JVariant::writeChain(qm_utils::ParamWriter& writer) const {
  for (const JVariant* pVariant = this; pVariant != nullptr; pVariant = pVariant->m_pNext) {
    if (pVariant != this) {
      writer.writeText(", ");
    }
    writer.writeParameter(orEmpty(pVariant->getName()), "", pVariant->value());
  }
  return writer.finish();
}

std::size_t JVariant::parse(std::string_view sText) {
  qm_utils::ParamReader reader(sText);
  std::vector<std::unique_ptr<JVariant>> chain;
  do {
    const std::string_view sName = reader.readName();
    chain.push_back(std::make_unique<JVariant>(sName, reader.readValue()));
  } while (reader.readComma());

  swapContent(*chain.front());
  JVariant* pLast = this;
  for (std::size_t i = 1; i < chain.size(); ++i) {
    pLast->m_pNext = chain[i].release();
    pLast = pLast->m_pNext;
  }
  pLast->m_pNext = nullptr;
  return reader.offset();
}

bool JVariant::parse(std::string_view sText, std::string_view sWantedName) {
  qm_utils::ParamReader reader(sText);
  JVariant found;
  bool bFound = false;
  do {
    const bool bWanted = reader.readName() == sWantedName;
    const ParamValue value = reader.readValue();
    if (bWanted) {
      found = JVariant(sWantedName, value);
      bFound = true;
    }
  } while (reader.readComma());
  if (bFound) {
    swapContent(found);
  }
  return bFound;
}

void JVariant::SyntaxError::getMessage(char* szBuf, std::size_t iBufLen) const {
  // A parameter may be the whole rest of a long text: no more of it is copied than the buffer takes.
  std::string sText = "SyntaxError for parameter: '";
  sText.append(m_sParameter, 0, iBufLen).append("' ('").append(m_sMessage).append("')");
  qm_err::copyText(szBuf, iBufLen, sText);
}

void JVariant::TypeMismatchError::getMessage(char* szBuf, std::size_t iBufLen) const {
  std::string sText = "TypeMismatchError for parameter '";
  sText.append(m_sParameter, 0, iBufLen).append("' : wanted '").append(std::to_string(m_eWanted));
  sText.append("', actual '").append(std::to_string(m_eActual)).append("'");
  qm_err::copyText(szBuf, iBufLen, sText);
}

void JVariant::MissingParameterError::getMessage(char* szBuf, std::size_t iBufLen) const {
  std::string sText = "MissingParameterError for parameter: '";
  sText.append(m_sParameter, 0, iBufLen).append("'");
  qm_err::copyText(szBuf, iBufLen, sText);
}
