// How the values of one parameter document are taken over into another.

#include <libxml/tree.h>

#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmxml/qmxmlparams.h"
#include "coreapi/qmxml/xmldocument.h"

using qm_xml::fromXml;

namespace {

constexpr int kFailed = -3;

/// Says that a node of a name isn't under a node of the destination.
int missing(const std::string& sWhat, const xmlNode* pNode, const xmlNode* pParent) {
  qm_err::log(qm_err::kLogWarning, "%s named %s under Node %s.", sWhat.c_str(), fromXml(pNode->name).c_str(),
              fromXml(pParent->name).c_str());
  return kFailed;
}

/// One walk over two documents. Levels are counted down, from a negative number without end.
class Merge {
 public:
  explicit Merge(bool bAllLevels) : m_bAllLevels(bAllLevels) {}

  /// Takes over what `pSource` holds into `pDestination`. 1, 0 when a value that isn't dynamic changed, or
  /// -3. `bForce`: an element around them is dynamic, so that they all count as dynamic.
  int mergeNodes(const xmlNode* pSource, xmlNode* pDestination, bool bForce, int iDepth) const {
    int iProduct = 1;
    xmlNode* pPosition = pDestination->children;
    for (xmlNode* pNew = pSource->children; pNew != nullptr; pNew = pNew->next) {
      if (pNew->type != XML_ELEMENT_NODE) {
        continue;
      }
      xmlNode* pOld = qm_xml::findSibling(pDestination->children, fromXml(pNew->name));
      if (pOld == nullptr) {
        return missing(m_bAllLevels ? "mergeNodesAllRecursive(): Source document has no element Node"
                                    : "mergeNodes(): Source document has no element Node",
                       pNew, pDestination);
      }
      const int iResult = isReplaced(pNew, pOld, iDepth)
                              ? replaceNodes(pNew, pDestination, pPosition, bForce)
                              : mergeNodes(pNew, pOld, bForce || qm_xml::isDynamicNode(pOld), iDepth - 1);
      if (iResult == kFailed) {
        return kFailed;
      }
      iProduct *= iResult;
    }
    return iProduct;
  }

 private:
  bool isReplaced(const xmlNode* pNew, const xmlNode* pOld, int iDepth) const {
    if (m_bAllLevels) {
      return holdsText(pNew) || holdsText(pOld);
    }
    return iDepth == 0 || qm_xml::isTextOnly(pOld);
  }

  static bool holdsText(const xmlNode* pNode) {
    return pNode->children != nullptr && pNode->children->type == XML_TEXT_NODE;
  }

  /// Puts a copy of `pNew` in the place of the next node of its name, from `pPosition` on, which moves behind
  /// it: of several nodes of a name each has its turn.
  static int replaceNodes(xmlNode* pNew, xmlNode* pParent, xmlNode*& pPosition, bool bForce) {
    qm_xml::OwnedNode copy(xmlDocCopyNode(pNew, pParent->doc, 1));
    xmlNode* pOld = qm_xml::findSibling(pPosition, fromXml(pNew->name));
    if (pOld == nullptr) {
      return missing("replaceNodes(): Source document has no text Node", pNew, pParent);
    }
    if (!copy) {
      qm_err::log(qm_err::kLogWarning, "replaceNodes(): Could not copy text Node named %s in new document.",
                  fromXml(pNew->name).c_str());
      return kFailed;
    }
    pPosition = pOld->next;
    const bool bDynamic = qm_xml::isDynamicNode(pOld);
    const bool bChanged = qm_xml::contentOf(pOld) != qm_xml::contentOf(pNew);
    if (bDynamic && !qm_xml::isDynamicNode(copy.get())) {
      const qm_xml::OwnedText value(xmlGetProp(pOld, qm_xml::toXml(qm_xml::kDynamic)));
      xmlNewProp(copy.get(), qm_xml::toXml(qm_xml::kDynamic), value.get());
    }
    xmlReplaceNode(pOld, copy.release());
    const qm_xml::OwnedNode old(pOld);
    return bChanged && !bDynamic && !bForce ? 0 : 1;
  }

  bool m_bAllLevels;
};

}  // namespace

int QMXmlParams::mergeFromXMLContent(const std::string& sText, bool bAllLevels) {
  return mergeDocument(qm_xml::readDocument(sText).release(), "mergeFromXMLContent(): Merge failed!",
                       bAllLevels);
}

int QMXmlParams::mergeFromXMLFile(const char* szFileName, bool bAllLevels) {
  return mergeDocument(qm_xml::openDocument(szFileName).release(), "mergeFromXMLFile(): Merge failed!",
                       bAllLevels);
}

int QMXmlParams::mergeDocument(_xmlDoc* pNew, const char* szFailure, bool bAllLevels) {
  qm_xml::OwnedDoc document(pNew);
  if (!document) {
    return -1;
  }
  if (m_pSchema != nullptr && !validate(document.get())) {
    return -2;
  }
  if (m_pConfig == nullptr) {
    m_pConfig = document.release();
    return 0;
  }
  const int iResult = merge(document.get(), bAllLevels);
  if (iResult == kFailed) {
    qm_err::logText(qm_err::kLogWarning, szFailure);
  }
  return iResult;
}

int QMXmlParams::merge(_xmlDoc* pNew, bool bAllLevels) {
  const xmlNode* pNewRoot = xmlDocGetRootElement(pNew);
  if (pNewRoot == nullptr || getRoot() == nullptr) {
    qm_err::logText(qm_err::kLogWarning, pNewRoot != nullptr
                                             ? "merge(): Internal Param Document has no root node."
                                         : getRoot() == nullptr ? "merge(): Both documents have no root node."
                                                                : "merge(): New Document has no root node.");
    return kFailed;
  }
  // A merge that fails halfway leaves the configuration as it was: the work is done on a copy.
  qm_xml::OwnedDoc merged(xmlCopyDoc(m_pConfig, 1));
  xmlNode* pRoot = merged ? xmlDocGetRootElement(merged.get()) : nullptr;
  if (pRoot == nullptr) {
    return kFailed;
  }
  const int iResult =
      Merge(bAllLevels).mergeNodes(pNewRoot, pRoot, qm_xml::isDynamicNode(pRoot), bAllLevels ? -1 : 1);
  if (iResult != kFailed) {
    clearConfig();
    m_pConfig = merged.release();
  }
  return iResult;
}
