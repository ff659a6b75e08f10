// What reaches the control and the command line from outside without a parser of its own elsewhere: stored
// properties, the environment of a child, rows, and their way to a user.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "coreapi/qmutils/error/loghook.h"
#include "qmactivexctrl/qmstorageaccesscontroller/JQMStorageAccessCtrl.h"
#include "qmactivexctrl/qmstorageaccesscontroller/environmenttext.h"
#include "tools/qmctl/listcommands.h"
#include "tools/qmctl/text.h"

namespace {

constexpr qmctl::RowField kFields[] = {
    {"a", "", "", qmctl::RowField::kQuoted},
    {"b", "", "", qmctl::RowField::kText},
    {"c", "", "", qmctl::RowField::kNumber},
};
constexpr qmctl::RowField kPairs = {"", "", "", qmctl::RowField::kRest};

void require(bool bCondition) {
  if (!bCondition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*pCount*/, char*** /*pArguments*/) {
  qm_err::setLogHook(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
  const std::span bytes(pData, uSize);
  const std::string sText(bytes.begin(), bytes.end());

  // What loads is saved as it was, but for what stands behind it, numbers that are truth values, and a NUL.
  static JQMStorageAccessCtrl control;
  if (control.Load(bytes) == QMStatus::kOk) {
    std::vector<std::uint8_t> saved;
    std::vector<std::uint8_t> again;
    require(control.Save(saved) == QMStatus::kOk);
    require(control.Load(saved) == QMStatus::kOk && control.Save(again) == QMStatus::kOk && saved == again);
  }

  std::size_t uLength = 0;
  for (const std::string& sToken : qm_control::splitEnvironment(sText)) {
    uLength += sToken.size();
  }
  require(uLength <= uSize);

  std::vector<std::string> values;
  if (qmctl::splitRow(sText, kFields, values)) {
    require("a=\"" + values[0] + "\",b=\"" + values[1] + "\",c=" + values[2] == sText);
  }
  std::u16string sWide;
  for (std::size_t i = 0; i + 1 < uSize; i += 2) {
    sWide += static_cast<char16_t>(pData[i] | pData[i + 1] << 8);
  }
  const std::string sUser = qmctl::fromControl(sWide);
  require(qmctl::fromControl(qmctl::toControl(sUser)) == sUser);
  std::ostringstream json;
  qmctl::writeJson(json, {{"params", qmctl::toJsonValue(kPairs, sUser)}});
  require(qmctl::Json::accept(json.str()));
  return 0;
}
