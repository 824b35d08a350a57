# One function declares a module, so that each folder's CMakeLists.txt reads as a declaration.
#
#   vorna_module(NAME graph_nodes
#     HEADERS  graph/nodes/EventCropNode.h ...     # relative to src/; public, each compiles alone
#     SOURCES  EventCropNode.cpp ...               # relative to the folder
#     DEPS     ondra trovi                         # our modules that it may include and link
#     EXTERNAL PkgConfig::ZMQ)                     # libraries that are not ours
#
# FAMILY ravik, here and in vorna_test, compiles the SOURCES for that chip family: src/tessel/family/Family.h.
#
# A module without SOURCES is header-only. tools/check-layers.py reads the DEPS lists and refuses an #include that goes
# against them.
function(vorna_module)
  cmake_parse_arguments(M "" "NAME;FAMILY" "HEADERS;SOURCES;DEPS;EXTERNAL" ${ARGN})
  if(M_SOURCES)
    add_library(${M_NAME} STATIC ${M_SOURCES})
    set(scope PUBLIC)
  else()
    add_library(${M_NAME} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_link_libraries(${M_NAME} ${scope} vorna_flags ${M_DEPS} ${M_EXTERNAL})
  if(M_FAMILY)
    target_compile_definitions(${M_NAME} PRIVATE VORNA_FAMILY=${M_FAMILY})
  endif()
  if(M_HEADERS)
    list(TRANSFORM M_HEADERS PREPEND "${PROJECT_SOURCE_DIR}/src/")
    target_sources(${M_NAME} ${scope} FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src" FILES ${M_HEADERS})
    set_property(TARGET ${M_NAME} PROPERTY VERIFY_INTERFACE_HEADER_SETS ON)
  endif()
endfunction()

# vorna_test(NAME graph_test SOURCES ... DEPS ... [LABELS threads] [TIMEOUT 60]): GoogleTest; one ctest test a case.
function(vorna_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT;FAMILY" "SOURCES;DEPS;LABELS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 60)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_DEPS} vorna_flags GTest::gmock GTest::gtest_main)
  target_compile_definitions(${T_NAME} PRIVATE VORNA_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  set(prefix "")
  if(T_FAMILY)
    target_compile_definitions(${T_NAME} PRIVATE VORNA_FAMILY=${T_FAMILY})
    set(prefix TEST_PREFIX "${T_FAMILY}.")
  endif()
  gtest_discover_tests(${T_NAME} ${prefix} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${T_TIMEOUT} LABELS "cpp;${T_LABELS}")
endfunction()

# vorna_bench(NAME bm_serial SOURCES ... DEPS ...): Google Benchmark; `make bench` runs it, no test does.
function(vorna_bench)
  cmake_parse_arguments(B "" "NAME" "SOURCES;DEPS" ${ARGN})
  add_executable(${B_NAME} ${B_SOURCES})
  target_link_libraries(${B_NAME} PRIVATE ${B_DEPS} vorna_flags benchmark::benchmark benchmark::benchmark_main)
endfunction()

# vorna_fuzzer(NAME fuzz_message SOURCES ... DEPS ...): libFuzzer in the fuzz preset. In others a program that replays
# the seeds of fuzz/corpus/<name>, as a test.
function(vorna_fuzzer)
  cmake_parse_arguments(F "" "NAME" "SOURCES;DEPS" ${ARGN})
  add_executable(${F_NAME} ${F_SOURCES})
  target_link_libraries(${F_NAME} PRIVATE ${F_DEPS} vorna_flags)
  if(VORNA_FUZZ)
    target_compile_options(${F_NAME} PRIVATE -fsanitize=fuzzer)
    target_link_options(${F_NAME} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${F_NAME} PRIVATE Replay.cpp)
    target_link_libraries(${F_NAME} PRIVATE util_base)
    add_test(NAME ${F_NAME}.corpus COMMAND ${F_NAME} "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${F_NAME}")
    set_tests_properties(${F_NAME}.corpus PROPERTIES TIMEOUT 120 LABELS cpp)
  endif()
endfunction()
