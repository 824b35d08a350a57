vorna_test(NAME chip_registers_test
  SOURCES RegistersTest.cpp
  DEPS tessel_registers)
