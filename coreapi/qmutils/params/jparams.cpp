#include "coreapi/qmutils/params/jparams.h"

#include <utility>

#include "coreapi/qmutils/params/paramreader.h"
#include "coreapi/qmutils/params/paramvalue.h"
#include "coreapi/qmutils/params/paramwriter.h"

namespace {

using qm_utils::ParamValue;

}  // namespace

void JParams::merge(const JParams& other) {
  if (this != &other) {
    m_entries.putAll(other.m_entries);
  }
}

void JParams::add(const JParams* pOther) {
  if (pOther != nullptr) {
    merge(*pOther);
  }
}

void JParams::add(std::unique_ptr<JVariant> pVariant) {
  JASSERT(pVariant != nullptr);
  if (pVariant == nullptr) {
    return;
  }
  pVariant->setNext(nullptr);
  const char* const szName = pVariant->getName();
  m_entries.put(szName != nullptr ? szName : "", std::move(pVariant));
}

void JParams::add(std::string_view sName, double dValue) {
  m_entries.put(qm_utils::upToNul(sName), ParamValue::ofDouble(dValue));
}

void JParams::add(std::string_view sName, std::string_view sText) {
  m_entries.put(qm_utils::upToNul(sName), ParamValue::ofText(qm_utils::upToNul(sText)));
}

void JParams::add(std::string_view sName, const char* szText) {
  add(sName, std::string_view(szText != nullptr ? szText : ""));
}

void JParams::add(std::string_view sName, const std::uint8_t* pBytes, std::uint32_t uSize,
                  JVariant::Type eType) {
  m_entries.put(qm_utils::upToNul(sName),
                ParamValue::ofBytes(pBytes, pBytes != nullptr ? uSize : 0,
                                    eType == JVariant::T_BLOB ? JVariant::T_BLOB : JVariant::T_BINARY));
}

void JParams::addInteger(std::string_view sName, std::int64_t iValue, JVariant::Type eType) {
  m_entries.put(qm_utils::upToNul(sName), ParamValue::ofInteger(iValue, eType));
}

bool JParams::remove(std::string_view sName) {
  return m_entries.erase(qm_utils::upToNul(sName));
}

void JParams::clear() noexcept {
  m_entries.clear();
}

const JVariant* JParams::find(std::string_view sName, bool bRequired) const {
  const JVariant* const pVariant = m_entries.hold(qm_utils::upToNul(sName));
  if (pVariant == nullptr && bRequired) {
    QM_THROW(JVariant::MissingParameterError, std::string(sName));
  }
  return pVariant;
}

/// The value of a name through a conversion; nothing when the name is absent and not required.
template <class T>
std::optional<T> JParams::read(std::string_view sName, bool bRequired, JVariant::Type eWanted,
                               std::optional<T> (*convert)(const ParamValue&)) const {
  const std::optional<ParamValue> value = m_entries.get(qm_utils::upToNul(sName));
  if (!value) {
    if (bRequired) {
      QM_THROW(JVariant::MissingParameterError, std::string(sName));
    }
    return std::nullopt;
  }
  std::optional<T> result = convert(*value);
  if (!result) {
    QM_THROW(JVariant::TypeMismatchError, std::string(sName), eWanted, value->type);
  }
  return result;
}

bool JParams::get(std::string_view sName, double& dValue, bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_DOUBLE, qm_utils::toDouble);
  dValue = value.value_or(dValue);
  return value.has_value();
}

bool JParams::get(std::string_view sName, std::int32_t& iValue, bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_INT, qm_utils::toInt32);
  iValue = value.value_or(iValue);
  return value.has_value();
}

bool JParams::get(std::string_view sName, std::int64_t& iValue, bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_INT, qm_utils::toInt64);
  iValue = value.value_or(iValue);
  return value.has_value();
}

bool JParams::get(std::string_view sName, bool& bValue, bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_BOOL, qm_utils::toBool);
  bValue = value.value_or(bValue);
  return value.has_value();
}

bool JParams::get(std::string_view sName, std::unique_ptr<char[]>& szText, bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_STRING, qm_utils::toString);
  if (value) {
    szText = qm_utils::newText(*value);
  }
  return value.has_value();
}

bool JParams::get(std::string_view sName, std::string& sText, bool bRequired) const {
  auto value = read(sName, bRequired, JVariant::T_STRING, qm_utils::toString);
  if (value) {
    sText = std::move(*value);
  }
  return value.has_value();
}

bool JParams::get(std::string_view sName, std::unique_ptr<std::uint8_t[]>& pBytes, std::uint32_t& uSize,
                  bool bRequired) const {
  const auto value = read(sName, bRequired, JVariant::T_BINARY, qm_utils::toBytes);
  if (value) {
    pBytes = qm_utils::newBytes(*value);
    uSize = static_cast<std::uint32_t>(value->size());
  }
  return value.has_value();
}

std::size_t JParams::parse(std::string_view sText) {
  qm_utils::ParamReader reader(sText);
  if (reader.skipEmptyList()) {
    return reader.offset();
  }
  qm_utils::ParamStore entries;
  try {
    do {
      const std::string_view sName = reader.readName();
      entries.put(sName, reader.readValue());
    } while (reader.readComma());
  } catch (JError* pError) {
    qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    error.rethrow();
  }
  if (isEmpty()) {
    m_entries = std::move(entries);
  } else {
    m_entries.putAll(entries);
  }
  return reader.offset();
}

std::size_t JParams::getMaxLength() const noexcept {
  std::size_t length = isEmpty() ? 0 : 2 * (getCount() - 1);
  m_entries.forEach([&](std::string_view sStart, std::string_view sEnd, const ParamValue& value) {
    length += qm_utils::maxTextLength(sStart.size() + sEnd.size(), value);
  });
  return length;
}

std::size_t JParams::write(qm_utils::ParamWriter& writer, std::string_view sSeparator) const {
  bool bFirst = true;
  m_entries.forEach([&](std::string_view sStart, std::string_view sEnd, const ParamValue& value) {
    if (!bFirst) {
      writer.writeText(sSeparator);
    }
    bFirst = false;
    writer.writeParameter(sStart, sEnd, value);
  });
  return writer.finish();
}

std::size_t JParams::toText(char* szBuf, char cSeparator) const {
  const char separator[] = {cSeparator, ' '};
  qm_utils::ParamWriter writer(szBuf);
  return write(writer, {separator, sizeof separator});
}

void JParams::toText(std::string& sText, char cSeparator) const {
  const char separator[] = {cSeparator, ' '};
  toTextSeparatedBy(sText, {separator, sizeof separator});
}

void JParams::toTextSeparatedBy(std::string& sText, std::string_view sSeparator) const {
  sText.clear();
  sText.reserve(getMaxLength());
  qm_utils::ParamWriter writer(sText);
  write(writer, sSeparator);
}

std::vector<std::string> JParams::getNames() const {
  std::vector<std::string> names;
  names.reserve(getCount());
  m_entries.forEach([&](std::string_view sStart, std::string_view sEnd, const ParamValue&) {
    names.emplace_back(sStart).append(sEnd);
  });
  return names;
}

std::map<std::string, JVariant::Type> JParams::getTypes() const {
  std::map<std::string, JVariant::Type> types;
  m_entries.forEach([&](std::string_view sStart, std::string_view sEnd, const ParamValue& value) {
    types.emplace_hint(types.end(), std::string(sStart).append(sEnd), value.type);
  });
  return types;
}
