vorna_bench(NAME bm_usb SOURCES bm_usb.cpp DEPS fxtree usb emulation_attach emulation_boards)

# Keeps all emulated boards busy for as long as one likes; the tests run it for two seconds.
add_executable(usb_soak usb_soak.cpp)
target_link_libraries(usb_soak PRIVATE fxtree opalkelly keplin_io emulation_attach emulation_boards vorna_flags)
target_include_directories(usb_soak PRIVATE ../tests/usb)
if(BUILD_TESTING)
  add_test(NAME usb.soak COMMAND usb_soak --seconds 2)
  set_tests_properties(usb.soak PROPERTIES TIMEOUT 120 LABELS "cpp;threads")
endif()
