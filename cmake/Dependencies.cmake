# Everything that is not ours, found once. `vorna_flags` carries what every file of the tree must agree on.
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(magic_enum 0.9 CONFIG REQUIRED)
find_package(cereal CONFIG REQUIRED)
pkg_check_modules(ZMQ REQUIRED IMPORTED_TARGET libzmq)
pkg_check_modules(USB REQUIRED IMPORTED_TARGET libusb-1.0)
pkg_check_modules(LOG4CPP REQUIRED IMPORTED_TARGET log4cpp)
pkg_check_modules(CAER IMPORTED_TARGET libcaer) # optional: without it no real camera is found
find_path(CONCURRENTQUEUE_INCLUDE concurrentqueue/blockingconcurrentqueue.h REQUIRED)

if(VORNA_PYTHON)
  # One build folder for one interpreter: choose with -DPython_EXECUTABLE=/path/to/python3.X
  if(NOT DEFINED Python_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "the interpreter to build for")
  endif()
  set(PYBIND11_FINDPYTHON ON)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF) # else pybind11 turns on LTO, which g++ 12 runs serially at link time
  find_package(Python 3.9 REQUIRED COMPONENTS Interpreter Development.Module)
  if(NOT "${Python_INCLUDE_DIRS}" MATCHES "python${Python_VERSION_MAJOR}\\.${Python_VERSION_MINOR}")
    message(FATAL_ERROR "the headers in ${Python_INCLUDE_DIRS} are not those of Python ${Python_VERSION}; "
                        "install the development package of that very version")
  endif()
  find_package(pybind11 2.13 CONFIG REQUIRED)
endif()

add_library(vorna_flags INTERFACE)
target_include_directories(vorna_flags INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_include_directories(vorna_flags SYSTEM INTERFACE "${CONCURRENTQUEUE_INCLUDE}")
target_compile_definitions(vorna_flags INTERFACE
  MAGIC_ENUM_RANGE_MAX=128 # the stock limit is 127, and an enumerator of value 128 would go missing
)
target_compile_options(vorna_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion
  # g++ 12 sees an overlap in std::string's operator+ that isn't there (GCC bug 105651, mended in 13)
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
target_link_libraries(vorna_flags INTERFACE magic_enum::magic_enum cereal::cereal Threads::Threads)
