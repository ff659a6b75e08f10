#include "coreapi/qmci/qmcicodes.h"

#include <cstddef>
#include <iterator>

#include "coreapi/qmci/fourcc.h"

namespace qm_ci {

namespace {

constexpr std::string_view kRetNames[] = {
    "QMCI_RET_OK",
    "QMCI_RET_PICTURE",
    "QMCI_RET_STREAM",
    "QMCI_RET_PREROLL",
    "QMCI_RET_SKIP",
    "QMCI_RET_DROP",
    "QMCI_RET_VIDEO_INFO_CHANGE",
    "QMCI_RET_AUDIO_INFO_CHANGE",
    "QMCI_RET_EXTRACT_RESET",
    "QMCI_RET_FUTURE_INFO",
    "QMCI_RET_TRANSITION_STREAM",
    "QMCI_RET_MISS_DATA",
};

/// From -1 downwards.
constexpr std::string_view kErrorNames[] = {
    "QMCI_ERROR_NOT_SUPPORTED",   "QMCI_ERROR_WRONG_PARAM",     "QMCI_ERROR_NOT_AVAILABLE",
    "QMCI_ERROR_NO_SPACE",        "QMCI_ERROR_ILL_DATA",        "QMCI_ERROR_NO_DATA",
    "QMCI_ERROR_LOCAL",           "QMCI_ERROR_RESTART",         "QMCI_ERROR_FATAL",
    "QMCI_ERROR_SZ_TOO_LARGE",    "QMCI_ERROR_SZ_TOO_SMALL",    "QMCI_ERROR_SZ_NO_MULT",
    "QMCI_ERROR_BAD_INTERLACE",   "QMCI_ERROR_BAD_PPS",         "QMCI_ERROR_BAD_FORMAT",
    "QMCI_ERROR_MISS_LAST_GROUP", "QMCI_ERROR_TOO_MANY_GROUPS", "QMCI_ERROR_WRONG_VERSION",
    "QMCI_ERROR_WRONG_PICTURE",   "QMCI_ERROR_EMPTY_PIPE",      "QMCI_ERROR_NO_PROBE_VALUE",
    "QMCI_ERROR_NO_CFG_PARAMS",   "QMCI_ERROR_NODES_NO_MATCH",
};

struct InterlaceRow {
  std::uint32_t uCode;
  std::string_view sName;
  unsigned uFields;
};

constexpr InterlaceRow kInterlaceRows[] = {
    {QMCI_NOT_INITIALIZED_INTERLACE, "NOT_INITIALIZED_INTERLACE", 0},
    {QMCI_TOP_FIELD, "TOP_FIELD", 1},
    {QMCI_BOTTOM_FIELD, "BOTTOM_FIELD", 1},
    {QMCI_SEPARATE_FIELDS, "SEPARATE_FIELDS", 1},
    {QMCI_TWO_FIELDS_TOP_FIRST, "TWO_FIELDS_TOP_FIRST", 2},
    {QMCI_TWO_FIELDS_BOTTOM_FIRST, "TWO_FIELDS_BOTTOM_FIRST", 2},
    {QMCI_PROGRESSIVE, "PROGRESSIVE", 1},
    {QMCI_DOUBLE_PROGRESSIVE, "DOUBLE_PROGRESSIVE", 2},
};

struct ColorRow {
  std::uint32_t uFourcc;
  std::string_view sName;
};

constexpr ColorRow kColorRows[] = {
    {fourcc("RGB3"), "RGB24"}, {fourcc("RGB4"), "RGB32"},         {fourcc("BGR3"), "BGR24"},
    {fourcc("BGR4"), ""},      {fourcc("bgr3"), "WINDOWS_BGR24"}, {fourcc("bgr4"), "WINDOWS_BGR32"},
    {fourcc("Y800"), "Y800"},  {fourcc("YUY2"), "YUY2"},          {fourcc("YUV9"), "YUV9"},
    {fourcc("YU16"), "YU16"},  {fourcc("Y41P"), "Y41P"},          {fourcc("IYUV"), "IYUV"},
};

const InterlaceRow* findInterlace(std::uint32_t uInterlace) noexcept {
  for (const InterlaceRow& row : kInterlaceRows) {
    if (row.uCode == uInterlace) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace

std::string_view retToString(int iCode) noexcept {
  if (iCode >= 0) {
    const auto index = static_cast<std::size_t>(iCode);
    return index < std::size(kRetNames) ? kRetNames[index] : "QMCI_RET_<UNKNOWN>";
  }
  // -1 is the first row; the lowest integer has no positive twin.
  const auto index = static_cast<std::size_t>(-(iCode + 1));
  return index < std::size(kErrorNames) ? kErrorNames[index] : "QMCI_ERROR_<UNKNOWN>";
}

std::string_view stateToString(int iState) noexcept {
  switch (iState) {
    case QMCI_ST_NOT_INITIALIZED:
      return "QMCI_ST_NOT_INITIALIZED";
    case QMCI_ST_NOT_SETUP:
      return "QMCI_ST_NOT_SETUP";
    case QMCI_ST_NO_NODE:
      return "QMCI_ST_NO_NODE";
    case QMCI_ST_READY:
      return "QMCI_ST_READY";
    case QMCI_ST_RUNNING:
      return "QMCI_ST_RUNNING";
    case QMCI_ST_IN_PIPE:
      return "QMCI_ST_IN_PIPE";
    case QMCI_ST_ERROR:
      return "QMCI_ST_ERROR";
    case QMCI_ST_RESTART:
      return "QMCI_ST_RESTART";
    default:
      return "unknown state (??)";
  }
}

std::string_view interlaceToString(std::uint32_t uInterlace) noexcept {
  const InterlaceRow* pRow = findInterlace(uInterlace);
  return pRow != nullptr ? pRow->sName : kInterlaceRows[0].sName;
}

std::uint32_t interlaceFromString(std::string_view sName) noexcept {
  for (const InterlaceRow& row : kInterlaceRows) {
    if (row.sName == sName) {
      return row.uCode;
    }
  }
  return QMCI_NOT_INITIALIZED_INTERLACE;
}

unsigned getFieldsPerPicture(std::uint32_t uInterlace) noexcept {
  const InterlaceRow* pRow = findInterlace(uInterlace);
  return pRow != nullptr ? pRow->uFields : 0;
}

std::string_view colorToString(std::uint32_t uFourcc) noexcept {
  for (const ColorRow& row : kColorRows) {
    if (row.uFourcc == uFourcc) {
      return row.sName;
    }
  }
  return "<UNKNOWN COLOR>";
}

}  // namespace qm_ci
