#pragma once

#include <cstddef>
#include <string>

struct _xmlDoc;

/// Life cycle of the XML library, parsing of whole documents, and their validation against W3C XML Schemas.
///
/// A document from memory came from a file or a peer: while it is parsed or validated, nothing else is read
/// for it, neither file nor network, whatever it names. A document opened by its file name may include
/// others.
///
/// Any thread may call the operations; a document belongs to one thread at a time.
class QMXml {
 public:
  QMXml() = delete;

  /// Bytes of text that are parsed at most, unless `setTextLimit` says otherwise.
  static constexpr std::size_t kDefaultTextLimit = std::size_t{256} * 1024;

  /// Sets, for the whole process, how many bytes a text, or a regular file that is opened, may have. Longer
  /// ones fail as if they couldn't be parsed; nothing of them is.
  static void setTextLimit(std::size_t limit) noexcept;
  static std::size_t getTextLimit() noexcept;

  /// Sets the library up, once for all its users. Every call is matched by one of `shutdown`.
  static void initialize();

  /// Gives up one `initialize`; the last one cleans the library up. No document may be in use by then.
  static void shutdown();

  static bool isInitialized() noexcept;

  /// Parses a file and carries out its XIncludes. The caller owns the document and gives it to `close`.
  /// Throws JTextError.
  static _xmlDoc* open(const char* szFileName);

  /// As `open`, from memory. Includes fail.
  static _xmlDoc* read(const char* pBuffer, std::size_t size);

  /// Frees a document. Null fails an assertion.
  static void close(_xmlDoc* pDocument);

  /// Checks a document against a W3C XML Schema, both by their file names. Returns whether it is valid;
  /// `sErrorOut` is set only when it isn't. Throws JTextError when either can't be parsed.
  static bool validate(const char* szDocumentFile, const char* szSchemaFile, std::string& sErrorOut);

  /// The same for texts in memory.
  static bool validate(const char* pDocument, std::size_t documentSize, const char* pSchema,
                       std::size_t schemaSize, std::string& sErrorOut);

  /// A text as the content of an element. In a text that XML can't hold, every byte that isn't plain ASCII is
  /// shown as "?". Needs no `initialize`.
  static std::string escapeText(const std::string& sText);

  /// What the XML library said last on this thread: message, and file and line when it knows them.
  static std::string getLastError();
};

/// Keeps the XML library set up for its lifetime.
class QMXmlUse {
 public:
  QMXmlUse() { QMXml::initialize(); }
  ~QMXmlUse() { QMXml::shutdown(); }
  QMXmlUse(const QMXmlUse&) = delete;
  QMXmlUse& operator=(const QMXmlUse&) = delete;
};
