# Finds the LAME MP3 library, which brings no CMake package of its own: target Mp3Lame::Mp3Lame.

find_path(Mp3Lame_INCLUDE_DIR lame.h PATH_SUFFIXES lame)
find_library(Mp3Lame_LIBRARY mp3lame)
mark_as_advanced(Mp3Lame_INCLUDE_DIR Mp3Lame_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Mp3Lame REQUIRED_VARS Mp3Lame_LIBRARY Mp3Lame_INCLUDE_DIR)

if(Mp3Lame_FOUND AND NOT TARGET Mp3Lame::Mp3Lame)
  add_library(Mp3Lame::Mp3Lame UNKNOWN IMPORTED)
  set_target_properties(Mp3Lame::Mp3Lame PROPERTIES
    IMPORTED_LOCATION "${Mp3Lame_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Mp3Lame_INCLUDE_DIR}")
endif()
