#include "storage/ASFIO/ASFFileInfo.h"

#include <utility>

#include "storage/filekinds.h"

ASFFileInfoOut::ASFFileInfoOut(std::string sFileName, std::uint32_t uIOAlignBlockSize)
    : ASFFileInfo(std::move(sFileName)) {
  m_uTypeMagic = file_kinds::kAsfMagic;
  m_bIOAligned = uIOAlignBlockSize != 0;
  m_uIOAlignBlockSize = uIOAlignBlockSize;
  m_creationDate = JTime::now();
  m_bOnFlyIndexing = true;
  m_bValidKeyFrameFlag = true;
  m_bSyntheticFlag = true;
  m_bSupportAuthentication = true;
  m_params.add("validKeyFrameFlag", true);
  m_params.add("syntheticFlag", true);
  m_params.add("supportAuthentication", true);
}
