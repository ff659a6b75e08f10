#include "coreapi/qmxml/xmlscope.h"

#include <atomic>
#include <filesystem>
#include <libxml/xmlerror.h>
#include <system_error>

#include "coreapi/qmxml/qmxml.h"

namespace qm_xml {

namespace {

/// The loader that was in force when ours was first put in front, and the one in force when it was last.
std::atomic<xmlExternalEntityLoader> g_firstLoader{nullptr};
std::atomic<xmlExternalEntityLoader> g_hostLoader{nullptr};

thread_local bool t_bRefuses = false;
thread_local bool t_bInHost = false;

/// A host may have wrapped this loader and be called by it: the second time round it is the first loader's
/// turn.
xmlParserInputPtr loadEntity(const char* szUrl, const char* szId, xmlParserCtxtPtr pContext) {
  if (t_bRefuses) {
    return nullptr;
  }
  const xmlExternalEntityLoader loader = t_bInHost ? g_firstLoader.load() : g_hostLoader.load();
  const bool bWasInHost = t_bInHost;
  t_bInHost = true;
  const xmlParserInputPtr pInput = loader(szUrl, szId, pContext);
  t_bInHost = bWasInHost;
  return pInput;
}

void ignoreStructured(void* /*pContext*/, xmlErrorPtr /*pError*/) {}

void ignoreGeneric(void* /*pContext*/, const char* /*szFormat*/, ...) {}

}  // namespace

void installEntityLoader() {
  const xmlExternalEntityLoader current = xmlGetExternalEntityLoader();
  if (current == loadEntity) {
    return;
  }
  xmlExternalEntityLoader none = nullptr;
  g_firstLoader.compare_exchange_strong(none, current);
  g_hostLoader.store(current);
  xmlSetExternalEntityLoader(loadEntity);
}

void removeEntityLoader() {
  if (xmlGetExternalEntityLoader() == loadEntity) {
    xmlSetExternalEntityLoader(g_hostLoader.load());
  }
}

void silenceErrors() {
  xmlSetStructuredErrorFunc(nullptr, ignoreStructured);
  xmlSetGenericErrorFunc(nullptr, ignoreGeneric);
}

XmlScope::XmlScope(Source eSource)
    : m_structuredError(xmlStructuredError),
      m_pStructuredContext(xmlStructuredErrorContext),
      m_genericError(xmlGenericError),
      m_pGenericContext(xmlGenericErrorContext),
      m_iKeepBlanks(xmlKeepBlanksDefaultValue),
      m_iIndentOutput(xmlIndentTreeOutput),
      m_bRefuses(t_bRefuses) {
  silenceErrors();
  xmlKeepBlanksDefault(0);
  t_bRefuses = eSource == kMemory;
  if (t_bRefuses) {
    installEntityLoader();  // a host may have put its own in front meanwhile
  }
}

XmlScope::~XmlScope() {
  t_bRefuses = m_bRefuses;
  xmlKeepBlanksDefaultValue = m_iKeepBlanks;
  xmlIndentTreeOutput = m_iIndentOutput;
  xmlSetGenericErrorFunc(m_pGenericContext, m_genericError);
  xmlSetStructuredErrorFunc(m_pStructuredContext, m_structuredError);
}

bool fitsLimit(std::size_t size) {
  return size <= QMXml::getTextLimit();
}

std::string limitText() {
  return "longer than the limit of " + std::to_string(QMXml::getTextLimit()) + " bytes";
}

bool fileFitsLimit(const char* szFileName) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(szFileName, error)) {
    return true;
  }
  const std::uintmax_t size = std::filesystem::file_size(szFileName, error);
  return error || size <= QMXml::getTextLimit();
}

}  // namespace qm_xml
