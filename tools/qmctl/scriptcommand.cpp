#include <algorithm>
#include <array>
#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"
#include "tools/qmctl/commandline.h"
#include "tools/qmctl/linkevents.h"
#include "tools/qmctl/output.h"
#include "tools/qmctl/text.h"

// Drives one control from lines of JSON:
//
//   ["DatabaseQuery", "SourceName=\"cam 1\""]   {"member":"DatabaseQuery","result":7}
//   ["get","Port"]                              {"member":"Port","result":11001}
//   ["put","Port",11001]                        {"member":"Port","result":null}
//   ["ExtractInteger","a","a=5",99]             {"member":"ExtractInteger","result":5}
//   ["wait","LinkUp",5000]                      {"event":"LinkUp"} or {"timeout":true}
//   anything else                               {"error":"..."}
//
// Each line gives one object, in order, written at once.

namespace qmctl {

namespace {

/// A line that can't be carried out; its text is the answer.
class BadLine : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::int32_t longOf(const Json& value, const std::string& sWhat) {
  if (value.is_number_integer()) {
    const bool bFits = value.is_number_unsigned()
                           ? value.get<std::uint64_t>() <= INT32_MAX
                           : value.get<std::int64_t>() >= INT32_MIN && value.get<std::int64_t>() <= INT32_MAX;
    if (bFits) {
      return value.get<std::int32_t>();
    }
  }
  throw BadLine(sWhat + " must be an integer of 32 bits");
}

std::string stringOf(const Json& value, const std::string& sWhat) {
  if (!value.is_string()) {
    throw BadLine(sWhat + " must be a string");
  }
  return value.get<std::string>();
}

QMVariant toVariant(const Json& value, QMKind eKind, const std::string& sWhat) {
  switch (eKind) {
    case QMKind::kString:
      return QMVariant(toControl(stringOf(value, sWhat)));
    case QMKind::kFloat:
      if (!value.is_number()) {
        throw BadLine(sWhat + " must be a number");
      }
      return QMVariant(value.get<float>());
    default:
      return QMVariant(longOf(value, sWhat));
  }
}

Json resultOf(const QMVariant& result, QMKind eKind) {
  std::int32_t iValue = 0;
  float fValue = 0;
  std::u16string sValue;
  switch (eKind) {
    case QMKind::kLong:
      result.get(iValue);
      return iValue;
    case QMKind::kFloat:
      result.get(fValue);
      return fValue;
    case QMKind::kString:
      result.get(sValue);
      return fromControl(sValue);
    default:
      return nullptr;
  }
}

/// The members whose out value the host may set beforehand.
bool takesOutValue(const QMMember& member) {
  constexpr std::array<std::string_view, 3> kNames{"ExtractInteger", "ExtractBoolean", "ExtractNumber"};
  return std::ranges::find(kNames, member.szName) != kNames.end();
}

class Script {
 public:
  explicit Script(const Settings& settings) {
    m_control.getEvents().Advise(m_pEvents);
    m_control.put_Server(toControl(settings.sServer).c_str());
    m_control.put_Port(settings.iPort);
    m_control.put_TunnelPort(settings.iTunnelPort);
    m_control.put_TimeOut(settings.iTimeOut);
  }

  Json answer(const std::string& sLine) {
    try {
      const Json line = Json::parse(sLine);
      if (!line.is_array() || line.empty()) {
        throw BadLine("a line is a JSON array that begins with a member's name");
      }
      return carryOut(line);
    } catch (const Json::parse_error& error) {
      return {{"error", std::string("not JSON: ") + error.what()}};
    } catch (const std::exception& error) {
      return {{"error", error.what()}};
    }
  }

 private:
  Json carryOut(const Json& line) {
    const std::string sVerb = stringOf(line[0], "the first element");
    if (sVerb == "wait") {
      return wait(line);
    }
    if (sVerb == "get" || sVerb == "put") {
      if (line.size() < 2) {
        throw BadLine("the name of a property is missing");
      }
      return invoke(stringOf(line[1], "the name of a property"),
                    sVerb == "get" ? QMInvokeKind::kPropertyGet : QMInvokeKind::kPropertyPut, line, 2);
    }
    return invoke(sVerb, QMInvokeKind::kMethod, line, 1);
  }

  /// Calls the member with the elements from `uFirst` on.
  Json invoke(const std::string& sName, QMInvokeKind eKind, const Json& line, std::size_t uFirst) {
    const QMMember* const pMember = findControlMember(sName, eKind);
    if (pMember == nullptr) {
      throw BadLine("unknown member '" + sName + "'");
    }
    const std::size_t uGiven = line.size() - uFirst;
    const bool bOutValue = takesOutValue(*pMember) && uGiven == pMember->uParameters + 1;
    if (uGiven != pMember->uParameters && !bOutValue) {
      throw BadLine(sName + " takes " + std::to_string(pMember->uParameters) + " arguments");
    }
    std::vector<QMVariant> arguments;
    for (std::size_t i = 0; i < pMember->uParameters; ++i) {
      const char* const szName = pMember->parameterNames[i];
      arguments.push_back(toVariant(line[uFirst + i], pMember->parameterKinds[i],
                                    szName != nullptr ? szName : pMember->szName));
    }
    QMVariant result;
    if (bOutValue) {
      result = toVariant(line.back(), pMember->eResult, "the out value");
    }
    const QMStatus eStatus = m_control.Invoke(pMember->iDispid, eKind, arguments, &result);
    if (eStatus != QMStatus::kOk) {
      throw BadLine(sName + " ended with status " + std::to_string(static_cast<std::uint32_t>(eStatus)));
    }
    return {{"member", sName}, {"result", resultOf(result, pMember->eResult)}};
  }

  Json wait(const Json& line) {
    if (line.size() != 3) {
      throw BadLine("wait takes an event and milliseconds");
    }
    const std::string sEvent = stringOf(line[1], "the name of an event");
    const std::int32_t iMilliseconds = longOf(line[2], "the time to wait");
    for (const QMCallable& event : getControlEvents()) {
      if (sEvent == event.szName) {
        return eventOf(sEvent, m_pEvents->await(event.iDispid, std::max(iMilliseconds, 0)));
      }
    }
    throw BadLine("unknown event '" + sEvent + "'");
  }

  static Json eventOf(const std::string& sName, const std::optional<LinkEvents::Event>& event) {
    if (!event) {
      return {{"timeout", true}};
    }
    Json object{{"event", sName}};
    if (event->iDispid == qm_dispid::kLinkDown) {
      object["text"] = fromControl(event->sTextError);
    }
    return object;
  }

  std::shared_ptr<LinkEvents> m_pEvents = std::make_shared<LinkEvents>();
  JQMStorageAccessCtrl m_control;
};

void runScript(Context& context) {
  Script script(context.settings);
  for (std::string sLine; std::getline(context.in, sLine);) {
    writeJson(context.out, script.answer(sLine));
    context.out.flush();
  }
}

}  // namespace

void addScriptCommand(CLI::App& app, Context& context) {
  addCommand(app, "script", "Calls the control's members, one JSON array a line of standard input",
             "script <<< '[\"ExtractInteger\",\"a\",\"a=5\"]'")
      .callback([&context] { context.todo = [&context] { runScript(context); }; });
}

}  // namespace qmctl
