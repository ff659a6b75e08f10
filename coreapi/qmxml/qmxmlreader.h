#pragma once

#include <cstddef>
#include <map>
#include <string>

struct _xmlTextReader;

/// Reads a document step by step: element starts, element ends and texts. An empty element gives a start and
/// an end. A damaged document gives what comes before the damage.
///
/// Belongs to one thread at a time. `QMXml::initialize` comes first.
class QMXmlReader {
 public:
  enum NodeType { ElementBegin, ElementEnd, Text };

  /// Reads a file; it may include others. Throws JTextError.
  explicit QMXmlReader(const char* szFileName);

  /// Reads a copy of a text. No other file is read for it. Throws JTextError, also for a text over
  /// `QMXml::getTextLimit`.
  QMXmlReader(const char* pBuffer, std::size_t size);

  ~QMXmlReader();
  QMXmlReader(const QMXmlReader&) = delete;
  QMXmlReader& operator=(const QMXmlReader&) = delete;

  /// Steps to the next node; false at the end of the document. Throws JTextError.
  bool next();

  /// Steps on to the next start of an element of this name; false at the end of the document.
  bool findElement(const std::string& sName);

  /// Kind of the current node. Misuse before the first `next`, which logs and gives ElementEnd.
  NodeType getNodeType() const;

  /// Text of the current node, which must be a Text; else it logs and gives the empty text.
  std::string getText() const;

  /// Name of the current element, with its prefix; on a Text it logs and gives the empty text.
  std::string getElementName() const;

  /// Replaces `attributesOut` by the attributes of the current element.
  void getAttributes(std::map<std::string, std::string>& attributesOut);

  /// Ends reading and closes the input. `next` then gives false.
  void close();

 private:
  _xmlTextReader* m_pReader = nullptr;
  int m_iNodeType = 0;
  bool m_bPendingEnd = false;
  bool m_bFromMemory = false;
  std::string m_sText;  ///< what a reader from memory reads: the library doesn't copy it
};
