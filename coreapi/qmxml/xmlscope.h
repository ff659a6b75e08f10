#pragma once

#include <cstddef>

#include "coreapi/qmxml/xmlhandles.h"

/// How this layer shares the XML library with a host that may use it too. Private to this folder.
namespace qm_xml {

/// Installs the entity loader that refuses what `XmlScope` says, in front of the host's own.
void installEntityLoader();

/// Puts the host's own entity loader back.
void removeEntityLoader();

/// Stands around every call that parses or validates. For its lifetime the library prints nothing on this
/// thread, and drops text that is only blanks between elements. What the host has set for the thread is put
/// back at the end.
///
/// The library has one entity loader a process; whatever a document names comes through it. While a scope for
/// a text from memory is open on a thread, nothing is loaded there. In every other case the host's own loader
/// is called.
class XmlScope {
 public:
  enum Source { kMemory, kFile };

  explicit XmlScope(Source eSource);
  ~XmlScope();
  XmlScope(const XmlScope&) = delete;
  XmlScope& operator=(const XmlScope&) = delete;

 private:
  xmlStructuredErrorFunc m_structuredError;
  void* m_pStructuredContext;
  xmlGenericErrorFunc m_genericError;
  void* m_pGenericContext;
  int m_iKeepBlanks;
  int m_iIndentOutput;
  bool m_bRefuses;
};

/// Makes the library silent on this thread.
void silenceErrors();

/// Whether a text of so many bytes may be parsed; the limit is `QMXml::getTextLimit`.
bool fitsLimit(std::size_t size);

/// What is said about a text that is too long.
std::string limitText();

/// The same for a file. One that is no regular file has no size to look at.
bool fileFitsLimit(const char* szFileName);

}  // namespace qm_xml
