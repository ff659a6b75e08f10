#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class QMXmlReader;

/// Names of a path, which joins them with backslashes; none for the empty path.
std::vector<std::string> splitXmlPath(const std::string& sPath);

/// A node of a document held in memory: an element with its attributes and children, or a text.
///
/// A path names a node by the names of elements from this node down, joined with backslashes: of several
/// elements of a name the first is meant. The empty path is the node itself. Every value has four forms: own
/// or at a path, each either thrown about (JTextError) or given by an out-parameter, which keeps its value
/// when the result is false.
///
/// Belongs to one thread at a time.
class QMXmlTree {
 public:
  /// Numbers as they are kept. A node that was never parsed has no kind.
  enum Kind : std::int32_t { kNoKind = -1, kText = 0, kElement = 1 };
  using Attributes = std::map<std::string, std::string>;

  QMXmlTree() = default;
  QMXmlTree(QMXmlTree&&) noexcept = default;
  QMXmlTree& operator=(QMXmlTree&&) noexcept = default;

  /// Builds the tree from the node on which the reader stands and steps to the end of that node. Throws
  /// JTextError when the document ends before. A null reader, and one on the end of an element, are misuse.
  void parse(QMXmlReader* pReader);

  /// Makes this a node without kind, text, children and attributes.
  void clear();

  Kind getKind() const noexcept { return m_eKind; }

  /// Text of a text, name of an element.
  const std::string& getValue() const noexcept { return m_sValue; }

  const std::vector<std::unique_ptr<QMXmlTree>>& getChildren() const noexcept { return m_children; }

  /// The node at a path. With `bRequired` the path starts with this element's own name; otherwise with a
  /// child's. Throws JTextError when there is no such node.
  const QMXmlTree& get(const std::string& sPath, bool bRequired = false) const;
  bool has(const std::string& sPath, bool bRequired = false) const;

  /// Text as it stands: the first text child's, or the own text of a text.
  std::string getRawString() const;
  std::string getRawString(const std::string& sPath) const;
  bool getRawString(std::string& sOut) const;
  bool getRawString(const std::string& sPath, std::string& sOut) const;

  /// Decimal, octal after "0" or hexadecimal after "0x", with an optional sign.
  std::int32_t getInteger() const;
  std::int32_t getInteger(const std::string& sPath) const;
  bool getInteger(std::int32_t& iOut) const;
  bool getInteger(const std::string& sPath, std::int32_t& iOut) const;

  std::int64_t getSignedQword() const;
  std::int64_t getSignedQword(const std::string& sPath) const;
  bool getSignedQword(std::int64_t& llOut) const;
  bool getSignedQword(const std::string& sPath, std::int64_t& llOut) const;

  std::uint32_t getUnsigned() const;
  std::uint32_t getUnsigned(const std::string& sPath) const;
  bool getUnsigned(std::uint32_t& uOut) const;
  bool getUnsigned(const std::string& sPath, std::uint32_t& uOut) const;

  double getDouble() const;
  double getDouble(const std::string& sPath) const;
  bool getDouble(double& dOut) const;
  bool getDouble(const std::string& sPath, double& dOut) const;

  /// Exactly "true" or "false".
  bool getBool() const;
  bool getBool(const std::string& sPath) const;
  bool getBool(bool& bOut) const;
  bool getBool(const std::string& sPath, bool& bOut) const;

  /// Value of an attribute; the empty text when there is none.
  std::string getAttribute(const std::string& sName) const;
  bool hasAttribute(const std::string& sName) const;

 private:
  /// The node at a path, or null; then `sMissing` is the name that wasn't found.
  const QMXmlTree* find(const std::string& sPath, bool bRequired, std::string& sMissing) const;
  const std::string* rawText() const;

  Kind m_eKind = kNoKind;
  std::string m_sValue;
  std::vector<std::unique_ptr<QMXmlTree>> m_children;
  Attributes m_attributes;
};
