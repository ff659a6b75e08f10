#pragma once

#include <cstdint>
#include <string_view>

/// Codes of the media layer and their names, for logs.
namespace qm_ci {

/// What a step of a coder gave. Never renumber.
enum QMCI_RET : int {
  QMCI_RET_OK = 0,
  QMCI_RET_PICTURE = 1,
  QMCI_RET_STREAM = 2,
  QMCI_RET_PREROLL = 3,
  QMCI_RET_SKIP = 4,
  QMCI_RET_DROP = 5,
  QMCI_RET_VIDEO_INFO_CHANGE = 6,
  QMCI_RET_AUDIO_INFO_CHANGE = 7,
  QMCI_RET_EXTRACT_RESET = 8,
  QMCI_RET_FUTURE_INFO = 9,
  QMCI_RET_TRANSITION_STREAM = 10,
  QMCI_RET_MISS_DATA = 11,
};

/// Why a step failed. Never renumber.
enum QMCI_ERROR : int {
  QMCI_ERROR_NOT_SUPPORTED = -1,
  QMCI_ERROR_WRONG_PARAM = -2,
  QMCI_ERROR_NOT_AVAILABLE = -3,
  QMCI_ERROR_NO_SPACE = -4,
  QMCI_ERROR_ILL_DATA = -5,
  QMCI_ERROR_NO_DATA = -6,
  QMCI_ERROR_LOCAL = -7,
  QMCI_ERROR_RESTART = -8,
  QMCI_ERROR_FATAL = -9,
  QMCI_ERROR_SZ_TOO_LARGE = -10,
  QMCI_ERROR_SZ_TOO_SMALL = -11,
  QMCI_ERROR_SZ_NO_MULT = -12,
  QMCI_ERROR_BAD_INTERLACE = -13,
  QMCI_ERROR_BAD_PPS = -14,
  QMCI_ERROR_BAD_FORMAT = -15,
  QMCI_ERROR_MISS_LAST_GROUP = -16,
  QMCI_ERROR_TOO_MANY_GROUPS = -17,
  QMCI_ERROR_WRONG_VERSION = -18,
  QMCI_ERROR_WRONG_PICTURE = -19,
  QMCI_ERROR_EMPTY_PIPE = -20,
  QMCI_ERROR_NO_PROBE_VALUE = -21,
  QMCI_ERROR_NO_CFG_PARAMS = -22,
  QMCI_ERROR_NODES_NO_MATCH = -23,
};

/// State of a chain of coders. Never renumber.
enum QMCI_ST : int {
  QMCI_ST_NOT_INITIALIZED = 1,
  QMCI_ST_NOT_SETUP = 2,
  QMCI_ST_NO_NODE = 4,
  QMCI_ST_READY = 8,
  QMCI_ST_RUNNING = 16,
  QMCI_ST_IN_PIPE = 32,
  QMCI_ST_ERROR = 0x10000,
  QMCI_ST_RESTART = 0x20000,
};

/// How the lines of a picture are stored. Never renumber: descriptions hold these numbers.
enum QMCI_INTERLACE : std::uint32_t {
  QMCI_NOT_INITIALIZED_INTERLACE = 0,
  QMCI_TOP_FIELD = 10,
  QMCI_BOTTOM_FIELD = 11,
  QMCI_SEPARATE_FIELDS = 19,
  QMCI_TWO_FIELDS_TOP_FIRST = 20,
  QMCI_TWO_FIELDS_BOTTOM_FIRST = 21,
  QMCI_PROGRESSIVE = 100,
  QMCI_DOUBLE_PROGRESSIVE = 200,
};

/// Name of a QMCI_RET (0 and up) or QMCI_ERROR (negative); "QMCI_RET_<UNKNOWN>" or "QMCI_ERROR_<UNKNOWN>".
std::string_view retToString(int iCode) noexcept;

/// Name of a QMCI_ST, or "unknown state (??)".
std::string_view stateToString(int iState) noexcept;

/// Name of an interlace code as descriptions spell it; an unknown code reads as not initialised.
std::string_view interlaceToString(std::uint32_t uInterlace) noexcept;

/// Inverse of `interlaceToString`; 0 for a text that names no code.
std::uint32_t interlaceFromString(std::string_view sName) noexcept;

/// Fields in a picture: 1 or 2, and 0 for codes that don't say.
unsigned getFieldsPerPicture(std::uint32_t uInterlace) noexcept;

/// Name of an uncompressed colour format by its four-character code, or "<UNKNOWN COLOR>".
std::string_view colorToString(std::uint32_t uFourcc) noexcept;

}  // namespace qm_ci
