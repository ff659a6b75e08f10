#include "coreapi/qmutils/rpc/jrpcserialisation.h"

#include <new>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/jgenericerror.h"

void JRPCObject::serialise(JRPCSerialisation& /*target*/) const {}

void JRPCObject::deserialise(JRPCDeserialisation& /*source*/, bool /*bRequired*/) {}

std::size_t qm_utils::RpcKey::enter(std::string_view sObjectName, std::string_view sName) {
  const std::size_t uOuter = m_uPrefix;
  m_sText.resize(uOuter);
  sObjectName = sObjectName.substr(0, sObjectName.find('<'));
  for (std::size_t colons = sObjectName.find("::"); colons != std::string_view::npos;
       colons = sObjectName.find("::")) {
    m_sText.append(sObjectName.substr(0, colons)).append("00");
    sObjectName.remove_prefix(colons + 2);
  }
  m_sText.append(sObjectName).append("_").append(sName).append("__");
  m_uPrefix = m_sText.size();
  return uOuter;
}

// Writing.

void JRPCSerialisation::serialise(std::string_view sName, const JRPCObject& object) {
  const JAutoLock lock(m_mutex);
  const std::size_t uOuter = m_key.enter(object.getObjectName(), sName);
  object.serialise(*this);
  m_key.leave(uOuter);
}

void JRPCSerialisation::serialise(std::string_view sName, const std::uint8_t* pblob, std::uint32_t uSize) {
  if (pblob == nullptr) {
    QM_THROW(JNullPointerError, "pblob");
  }
  if (uSize == 0) {
    QM_THROW(JSerialisationError, "blob size is 0", "serialise", __FILE_NAME__, __LINE__);
  }
  const JAutoLock lock(m_mutex);
  const std::string_view sKey = m_key.of(sName);
  if (m_pjparams != nullptr) {
    m_pjparams->add(sKey, pblob, uSize, JVariant::T_BINARY);
  } else {
    m_variants.insert_or_assign(std::string(sKey), JVariant(sKey, pblob, uSize, JVariant::T_BINARY));
  }
}

JVariant* JRPCSerialisation::linkVar() {
  const JAutoLock lock(m_mutex);
  if (m_variants.empty()) {
    QM_THROW(JSerialisationError, "serialisarion is empty", "linkVar", __FILE_NAME__, __LINE__);
  }
  JVariant* pNext = nullptr;
  for (auto entry = m_variants.rbegin(); entry != m_variants.rend(); ++entry) {
    entry->second.setNext(pNext);
    pNext = &entry->second;
  }
  return pNext;
}

void JRPCSerialisation::toChain(JVariant& head) {
  const JAutoLock lock(m_mutex);
  const JVariant* const pFirst = linkVar();
  head = *pFirst;
}

void JRPCSerialisation::raw_serialisation(std::string& sText) {
  const JAutoLock lock(m_mutex);
  if (m_pjparams != nullptr) {
    m_pjparams->toText(sText);
    return;
  }
  if (m_variants.empty()) {
    QM_THROW(JSerialisationError, "serialisarion is empty", "raw_serialisation", __FILE_NAME__, __LINE__);
  }
  linkVar()->toText(sText);
}

// Reading.

JRPCDeserialisation::JRPCDeserialisation(std::string_view sText) {
  std::unique_ptr<JParams> pParams(new (std::nothrow) JParams);
  if (!pParams) {
    QM_THROW(JNullPointerError, "m_pjparams = new JParams()");
  }
  pParams->parse(sText);
  m_pjparams = pParams.get();
  m_pOwned = std::move(pParams);
}

JRPCDeserialisation::JRPCDeserialisation(const JParams* pParams, bool bTakeOwnership)
    : m_pOwned(bTakeOwnership ? pParams : nullptr), m_pjparams(pParams) {
  if (pParams == nullptr) {
    QM_THROW(JNullPointerError, "m_pjparams");
  }
}

JRPCDeserialisation::JRPCDeserialisation(std::unique_ptr<const JParams> pParams)
    : JRPCDeserialisation(pParams.release(), true) {}

void JRPCDeserialisation::reset() {
  const JAutoLock lock(m_mutex);
  m_pOwned = std::make_unique<JParams>();
  m_pjparams = m_pOwned.get();
  m_key.clear();
}

/// Throws for a required value that isn't there.
bool JRPCDeserialisation::check(bool bFound, std::string_view sName, bool bRequired) {
  if (!bFound && bRequired) {
    // The error has no room for a detail of its own; its place is behind the function's name.
    QM_THROW(JDeserialisationError, "cannot deserialise", "deserialise(" + std::string(sName) + ")",
             __FILE_NAME__, __LINE__);
  }
  return bFound;
}

template <typename T>
bool JRPCDeserialisation::read(std::string_view sName, T& value, bool bRequired) {
  const JAutoLock lock(m_mutex);
  return check(m_pjparams->get(m_key.of(sName), value), sName, bRequired);
}

template bool JRPCDeserialisation::read(std::string_view, bool&, bool);
template bool JRPCDeserialisation::read(std::string_view, double&, bool);
template bool JRPCDeserialisation::read(std::string_view, std::int32_t&, bool);
template bool JRPCDeserialisation::read(std::string_view, std::int64_t&, bool);

bool JRPCDeserialisation::deserialise(std::string_view sName, std::string& sValue, bool bRequired) {
  return read(sName, sValue, bRequired);
}

bool JRPCDeserialisation::deserialise(std::string_view sName, std::unique_ptr<char[]>& szValue,
                                      bool bRequired) {
  return read(sName, szValue, bRequired);
}

bool JRPCDeserialisation::deserialise(std::string_view sName, std::unique_ptr<std::uint8_t[]>* pblob,
                                      std::uint32_t& uSize, bool bRequired) {
  if (pblob == nullptr) {
    QM_THROW(JNullPointerError, "pblob");
  }
  pblob->reset();
  uSize = 0;
  const JAutoLock lock(m_mutex);
  return check(m_pjparams->get(m_key.of(sName), *pblob, uSize), sName, bRequired);
}

bool JRPCDeserialisation::deserialise(std::string_view sName, JRPCObject& object, bool bRequired) {
  const JAutoLock lock(m_mutex);
  const std::size_t uOuter = m_key.enter(object.getObjectName(), sName);
  try {
    object.deserialise(*this, true);
  } catch (JDeserialisationError* pError) {
    qm_err::CaughtError error(pError);
    JCATCH_LOG(error.get());
    m_key.leave(uOuter);
    if (bRequired) {
      error.rethrow();
    }
    return false;
  } catch (...) {
    m_key.leave(uOuter);
    throw;
  }
  m_key.leave(uOuter);
  return true;
}

void JRPCDeserialisation::raw_deserialisation(std::string& sText) const {
  const JAutoLock lock(m_mutex);
  m_pjparams->toText(sText);
}

std::size_t JRPCDeserialisation::getEntryCount() const {
  const JAutoLock lock(m_mutex);
  return m_pjparams->getCount();
}
