# How every target of this project is compiled.

function(qm_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wno-trigraphs)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 warns of overlaps that can't be in `"literal" + std::string` (GCC bug 105651).
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(QM_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(QM_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${QM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${QM_SANITIZE})
  endif()
  if(QM_FAULT_SEAMS)
    target_compile_definitions(${target} PRIVATE QM_FAULT_SEAMS=1)
  endif()
endfunction()

# qm_add_test(NAME SOURCES...): one test executable for a folder; every test of it is a CTest test.
function(qm_add_test name)
  add_executable(${name} ${ARGN})
  qm_configure_target(${name})
  target_link_libraries(${name} PRIVATE qmstorageaccess qm_test_support GTest::gtest GTest::gmock qm_test_main)
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300)
endfunction()
