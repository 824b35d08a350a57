# vorna_pytest(FOLDER tests/python [MODULE vorna] [PYTHON /usr/bin/python3] [TIMEOUT 300])
#
# Each test_*.py below the folder becomes one ctest test "py.<name>". It runs in a process of its own, so a file can't
# disturb the next, and a hang or crash is that file's alone. A process for each test would cost half a second a test.
# The results of its tests go to junit/ of the build folder, where tools/run-tests.py counts them.
#
# Output of C++ is not captured (--capture=sys): else what a sanitizer or a dying process prints last would be lost.
#
# A file that imports a compiled package of the system's interpreter (numpy, zmq) is left out for other interpreters.
function(vorna_pytest)
  cmake_parse_arguments(P "" "FOLDER;MODULE;PYTHON;TIMEOUT" "" ${ARGN})
  if(NOT P_PYTHON)
    set(P_PYTHON "${Python_EXECUTABLE}")
  endif()
  if(NOT P_TIMEOUT)
    set(P_TIMEOUT 300)
  endif()
  if(VORNA_SANITIZE)
    math(EXPR P_TIMEOUT "3 * ${P_TIMEOUT}")
  endif()
  set(path "")
  set(env PYTHONDONTWRITEBYTECODE=1 "VORNA_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
  if(P_MODULE)
    list(APPEND path "$<TARGET_FILE_DIR:${P_MODULE}>")
    vorna_sanitizer_environment(env)
  endif()
  file(REAL_PATH "${P_PYTHON}" real)
  file(REAL_PATH /usr/bin/python3 system)
  if(NOT real STREQUAL system)
    list(APPEND path /usr/lib/python3/dist-packages) # Debian's pytest is plain Python and runs in every version
  endif()
  if(path)
    list(JOIN path ":" path)
    list(APPEND env "PYTHONPATH=${path}")
  endif()

  file(GLOB_RECURSE files CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${P_FOLDER}/test_*.py")
  foreach(file IN LISTS files)
    file(RELATIVE_PATH name "${PROJECT_SOURCE_DIR}/${P_FOLDER}" "${file}")
    string(REGEX REPLACE "^test_|\\.py$" "" name "${name}")
    string(REPLACE "/test_" "." name "${name}")
    file(STRINGS "${file}" compiled REGEX "^[ ]*(import|from) (numpy|zmq)")
    if(compiled AND NOT real STREQUAL system)
      message(STATUS "py.${name} needs a package of the system's interpreter: left out for ${P_PYTHON}")
      continue()
    endif()
    add_test(NAME "py.${name}" WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}" COMMAND
      "${P_PYTHON}" -m pytest -p no:cacheprovider -q --capture=sys "--rootdir=${PROJECT_SOURCE_DIR}/${P_FOLDER}"
      -o faulthandler_timeout=100 -o junit_family=xunit1 "--junitxml=${CMAKE_BINARY_DIR}/junit/py.${name}.xml" "${file}")
    set_tests_properties("py.${name}" PROPERTIES LABELS python TIMEOUT ${P_TIMEOUT} ENVIRONMENT "${env}")
  endforeach()
endfunction()

# Appends to the list `env` what python needs to load a module built with a sanitizer. libstdc++ is preloaded too: else
# the runtime finds no __cxa_throw and dies at the first exception. The C++ tests look for leaks, those in Python don't.
function(vorna_sanitizer_environment env)
  if(VORNA_SANITIZE)
    set(runtime asan)
    if(VORNA_SANITIZE MATCHES thread)
      set(runtime tsan)
    endif()
    set(libraries "lib${runtime}.so")
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
      set(libraries "libclang_rt.${runtime}-${CMAKE_SYSTEM_PROCESSOR}.so")
    endif()
    set(preload "")
    foreach(library IN LISTS libraries ITEMS libstdc++.so.6)
      execute_process(COMMAND "${CMAKE_CXX_COMPILER}" "-print-file-name=${library}"
        OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
      file(REAL_PATH "${file}" file)
      list(APPEND preload "${file}")
    endforeach()
    list(JOIN preload ":" preload)
    set(${env} ${${env}} "LD_PRELOAD=${preload}" PYTHONMALLOC=malloc "ASAN_OPTIONS=detect_leaks=0"
      "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
      "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp" PARENT_SCOPE)
  endif()
endfunction()
