vorna_test(NAME chip_validation_test
  SOURCES ValidationTest.cpp
  DEPS    tessel_configuration ravik_configuration tessel_registers)
