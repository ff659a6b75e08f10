#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/jerror.h"

struct _xmlBuffer;
struct _xmlDoc;
struct _xmlNode;

/// A document of parameters with its schema in RELAX NG. The schema is built from the parameters that are
/// declared, or set as a text. Parameters are found by their name and the path of the sub-node that holds
/// them: names of elements below the root, joined with backslashes; the empty path is the root.
///
/// Nothing outside is read for a text that is set or merged. Texts over `QMXml::getTextLimit` don't parse.
/// What fails is logged at level WARNING and told by the result; only the getters throw.
///
/// Belongs to one thread at a time.
class QMXmlParams {
 public:
  /// Types of the values in a schema.
  enum Type : int {
    kInteger = 0,
    kNonNegativeInteger = 1,
    kPositiveInteger = 2,
    kDouble = 3,
    kString = 4,
    kBoolean = 5,
    kLong = 6,
  };

  /// Which bounds a declared number has.
  enum Bounds : int { kNoBounds = 0, kLowerBound = 1, kUpperBound = 2, kBothBounds = 3 };

  /// Kinds of nodes; the numbers of the document model.
  enum NodeKind : int { kElementNode = 1, kTextNode = 3 };

  /// A schema's root is an element of the root's name that holds sub-nodes, or, without `bRootNodeIsElement`,
  /// a reference to a definition of that name. Null names give "PARAMETERS" and "Sub1".
  explicit QMXmlParams(bool bRootNodeIsElement = true, const char* szRootName = nullptr,
                       const char* szSubNodeName = nullptr);

  /// Copies both documents, not a schema that is being built.
  QMXmlParams(const QMXmlParams& other);
  QMXmlParams(QMXmlParams&& other) noexcept;
  QMXmlParams& operator=(QMXmlParams other) noexcept;
  virtual ~QMXmlParams();

  /// Begins a schema with the opening of its grammar.
  virtual bool startSchemaCreation();

  /// Closes the grammar and makes it the schema, which replaces the one before.
  virtual bool endSchemaCreation();

  /// Makes the schema of an object without declared parameters.
  virtual bool createSchema();

  /// Adds text to the schema that is being built; false when none is.
  bool appendToSchema(const std::string& sText);

  /// True once `endSchemaCreation` has succeeded.
  bool isSchemaComplete() const noexcept { return m_bSchemaComplete; }

  /// Sets the schema. 0; -1 the text doesn't parse; -2 it is no schema, and there is none now; -3 the present
  /// configuration isn't valid under it.
  int setSchema(const std::string& sText);

  /// The schema as a text, which stays valid until the next call; the empty text when there is none.
  const std::string& getSchema();

  /// Declares an optional parameter in a sub-node (an empty name: in the root). Bounds that the kind leaves
  /// out are ignored. With `bDynamic` the parameter may carry the attribute "dynamic".
  bool declareInt(const std::string& sName, const std::string& sSubNode = {}, Bounds eBounds = kNoBounds,
                  std::int32_t iLow = 0, std::int32_t iHigh = 0, bool bDynamic = true);
  bool declareLong(const std::string& sName, const std::string& sSubNode = {}, Bounds eBounds = kNoBounds,
                   std::int64_t llLow = 0, std::int64_t llHigh = 0, bool bDynamic = true);
  bool declareDouble(const std::string& sName, const std::string& sSubNode = {}, Bounds eBounds = kNoBounds,
                     double dLow = 0.0, double dHigh = 0.0, bool bDynamic = true);
  bool declareBool(const std::string& sName, const std::string& sSubNode = {}, bool bDynamic = true);

  /// `sChoices`: the values that are allowed, separated by ";"; empty: any text.
  bool declareString(const std::string& sName, const std::string& sSubNode = {},
                     const std::string& sChoices = {}, bool bDynamic = true);

  /// Adds an element with a value to a node of the schema; see `declareString` for `sLow` of a string. An
  /// empty bound is none. Returns the element.
  static _xmlNode* addSchemaElement(const std::string& sName, _xmlNode* pParent, Type eType, bool bOptional,
                                    bool bDynamicAttribute, const std::string& sLow = {},
                                    const std::string& sHigh = {});

  /// Adds an element that holds what is added to it. Returns the element.
  static _xmlNode* addSchemaGroup(const std::string& sName, _xmlNode* pParent, bool bOptional);

  /// Adds an optional attribute of any value to an element of the schema.
  static void addSchemaAttribute(const std::string& sName, _xmlNode* pParent);

  /// Adds zero or more references to a definition.
  static void addSchemaReferences(const std::string& sDefinition, _xmlNode* pParent);

  /// Adds a definition to the schema's grammar. Null when there is no schema.
  _xmlNode* addSchemaDefinition(const std::string& sName);

  /// Sets the configuration. 0; -1 the text doesn't parse, and the configuration before stays; -2 it isn't
  /// valid, which is checked with `bValidateNow` only, and it stays.
  int setConfig(const std::string& sText, bool bValidateNow);
  void clearConfig() noexcept;

  /// The configuration as a text, which stays valid until the next call; the empty text when there is none.
  const std::string& getConfig(bool bFormat);

  /// The element of the root that a path names, as a text; empty when there is none. Throws JXmlParamsError
  /// without a root.
  std::string getConfig(const std::string& sPath) const;

  /// What the node at a path holds, as a text.
  std::string getContent(const std::string& sPath) const;

  /// Whether the configuration is valid. One that isn't is dropped.
  bool validateParams();

  /// Takes over the values of another document, whose elements must all be in the configuration. 0 a value
  /// that isn't marked "dynamic" changed, or there was no configuration and the document is it now; 1 no such
  /// value changed; -1 the document doesn't parse; -2 it isn't valid; -3 it has an element that the
  /// configuration hasn't, which stays as it was.
  ///
  /// Values are taken over from the root's children and their children. With `bAllLevels` they are from
  /// every depth.
  int mergeFromXMLContent(const std::string& sText, bool bAllLevels = false);
  int mergeFromXMLFile(const char* szFileName, bool bAllLevels = false);

  /// Values. Missing ones and those that aren't of the type throw JXmlParamsError.
  std::int32_t getInt(const std::string& sName, const std::string& sPath = {}) const;
  std::int64_t getLong(const std::string& sName, const std::string& sPath = {}) const;
  double getDouble(const std::string& sName, const std::string& sPath = {}) const;
  bool getBool(const std::string& sName, const std::string& sPath = {}) const;
  std::string getString(const std::string& sName, const std::string& sPath = {}) const;

  bool has(const std::string& sName, const std::string& sPath = {}) const;

  /// Set a value that exists. False when it doesn't, or when a text has what a document can't hold.
  bool setInt(const std::string& sName, std::int32_t iValue, const std::string& sPath = {});
  bool setLong(const std::string& sName, std::int64_t llValue, const std::string& sPath = {});
  bool setDouble(const std::string& sName, double dValue, const std::string& sPath = {});
  bool setBool(const std::string& sName, bool bValue, const std::string& sPath = {});
  bool setString(const std::string& sName, const std::string& sValue, const std::string& sPath = {});

  /// The same, but only when the value differs, one that can't be read included. Returns whether it was set.
  bool changeInt(const std::string& sName, std::int32_t iValue, const std::string& sPath = {});
  bool changeLong(const std::string& sName, std::int64_t llValue, const std::string& sPath = {});
  bool changeDouble(const std::string& sName, double dValue, const std::string& sPath = {});
  bool changeBool(const std::string& sName, bool bValue, const std::string& sPath = {});
  bool changeString(const std::string& sName, const std::string& sValue, const std::string& sPath = {});

  /// Name of the root element; empty when there is no configuration.
  std::string getRootName() const;

  /// An attribute of the root element; false when it hasn't it.
  bool getRootAttribute(const std::string& sName, std::string& sValueOut) const;

  /// Names of the children of a kind of the node at a path, in order.
  std::vector<std::string> getChildNames(const std::string& sPath, NodeKind eKind = kElementNode) const;

  /// Marks a parameter as one that may change while the system runs, by the attribute "dynamic".
  bool setDynamic(const std::string& sName, const std::string& sPath, bool bOn);
  bool isDynamic(const std::string& sName, const std::string& sPath = {}) const;

  /// Whether a parameter holds a text or nothing. False when it doesn't exist.
  bool isLeaf(const std::string& sName, const std::string& sPath = {}) const;

  /// Adds an element, and those of its path that don't exist; an empty name in the path ends it. Makes the
  /// configuration when there is none. False for names and texts that a document can't hold.
  bool addNode(const std::string& sName, const std::string& sPath = {});
  bool addTextNode(const std::string& sName, const std::string& sPath, const std::string& sContent,
                   const std::map<std::string, std::string>& attributes = {});

 private:
  bool validate(_xmlDoc* pDocument) const;
  void swap(QMXmlParams& other) noexcept;
  _xmlNode* getRoot() const;
  _xmlNode* findNode(const std::string& sPath) const;
  _xmlNode* findParam(const std::string& sName, const std::string& sPath) const;
  template <typename Value>
  Value getValue(const std::string& sName, const std::string& sPath, bool (*scan)(const std::string&, Value&),
                 const char* szFailure) const;
  template <typename Value>
  bool differs(const std::string& sName, const std::string& sPath, bool (*scan)(const std::string&, Value&),
               const Value& value) const;
  _xmlNode* makePath(const std::string& sPath);
  void declareSubNode(const std::string& sSubNode);
  bool declare(const std::string& sName, const std::string& sSubNode, Type eType, bool bDynamic,
               const std::string& sLow, const std::string& sHigh);
  int mergeDocument(_xmlDoc* pNew, const char* szFailure, bool bAllLevels);
  int merge(_xmlDoc* pNew, bool bAllLevels);

  _xmlDoc* m_pConfig = nullptr;
  _xmlDoc* m_pSchema = nullptr;
  _xmlBuffer* m_pSchemaBuffer = nullptr;
  std::string m_sConfig;
  std::string m_sSchema;
  bool m_bSchemaComplete = false;
  std::string m_sRootName;
  std::string m_sSchemaHead;
};
