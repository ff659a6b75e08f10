#include "qmactivexctrl/common/qm_atlcom_ext.h"

#include <algorithm>

#include "coreapi/qmutils/error/jerror.h"
#include "coreapi/qmutils/error/loghook.h"
#include "coreapi/qmutils/text/jtext.h"

namespace {

/// The names of a number, whatever the form of the call: those of its first entry.
template <typename Table>
const QMCallable* findNames(const Table& table, std::int32_t iDispid) {
  const auto it = std::ranges::find(table, iDispid, &QMCallable::iDispid);
  return it != table.end() ? &*it : nullptr;
}

void traceLine(const std::string& sLine, int iSourceLine) {
  qm_err::logText(qm_err::kLogActiveX, sLine.c_str(), __FILE_NAME__, iSourceLine);
}

std::string describeResult(QMStatus eStatus, const QMVariant* pResult) {
  std::string sLine = qm_utils::format("Result hr = 0x%.8X; pvarResult = ", static_cast<unsigned>(eStatus));
  if (pResult == nullptr) {
    return sLine + "'null'";
  }
  const QMVarType eType = pResult->getType();
  return sLine + '\'' + (isVarTypeShown(eType) ? pResult->toText() : "Binary") + "' (" +
         getVarTypeName(eType) + ')';
}

}  // namespace

namespace qm_dispatch {

Description describe(const QMCallable* pCallable, std::int32_t iDispid,
                     std::span<const QMVariant> arguments) {
  Description description;
  description.sName =
      pCallable != nullptr ? std::string(pCallable->szName) : "DISPID = " + std::to_string(iDispid);
  const std::size_t uNames = pCallable != nullptr ? pCallable->uParameterNames : 0;
  std::string& sText = description.sArguments;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (i < uNames) {
      sText.append(pCallable->parameterNames[i]).append(" = ");
    }
    sText.append("'").append(arguments[i].toText()).append("' (");
    sText.append(getVarTypeName(arguments[i].getType()));
    sText.append(i + 1 < arguments.size() ? "), " : ")");
  }
  return description;
}

QMStatus invoke(IQMStorageAccessCtrl& control, const std::string& sClass, std::int32_t iDispid,
                QMInvokeKind eKind, std::span<const QMVariant> arguments, QMVariant* pResult) {
  const Description call = describe(findNames(getControlMembers(), iDispid), iDispid, arguments);
  traceLine("IQMDispatchImpl<" + sClass + ">: Dispatching " + call.sName + "( " + call.sArguments + " )",
            __LINE__);
  const QMMember* const pMember = findControlMember(iDispid, eKind);
  const QMStatus eStatus =
      pMember != nullptr ? pMember->pCall(control, arguments, pResult) : QMStatus::kMemberNotFound;
  traceLine(describeResult(eStatus, pResult), __LINE__);
  return eStatus;
}

void traceEvent(const std::string& sClass, std::int32_t iDispid, std::span<const QMVariant> arguments) {
  const Description event = describe(findNames(getControlEvents(), iDispid), iDispid, arguments);
  traceLine("EventDispatchLog<" + sClass + ">: Firing event " + event.sName + " (" + event.sArguments + ")",
            __LINE__);
}

}  // namespace qm_dispatch
