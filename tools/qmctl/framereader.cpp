#include "tools/qmctl/framereader.h"

#include <ostream>
#include <utility>

#include "coreapi/qmutils/error/jerror.h"
#include "tools/qmctl/failure.h"
#include "tools/qmctl/text.h"

namespace qmctl {

void onFile(const std::string& sFile, const std::function<void()>& step) {
  try {
    step();
  } catch (JError* pError) {
    const qm_err::CaughtError error(pError);
    throw Failure(kFailed, sFile + ": " + error->getMessage());
  }
}

void tellOf(std::ostream& error, const std::string& sFile, const std::string& sText) {
  error << "qmctl: " << printable(sFile) << ": " << sText << '\n';
}

FrameReader::FrameReader(std::string sFile, std::ostream& error) : m_sFile(std::move(sFile)) {
  onFile(m_sFile, [&] {
    m_pWalk = std::make_unique<FrameWalk>(
        m_sFile, [sName = m_sFile, &error](const std::string& sText) { tellOf(error, sName, sText); });
  });
}

bool FrameReader::next() {
  bool bFrame = false;
  onFile(m_sFile, [&] { bFrame = m_pWalk->next(); });
  return bFrame;
}

}  // namespace qmctl
