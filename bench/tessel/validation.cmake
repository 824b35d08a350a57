vorna_bench(NAME bm_chip_validation
  SOURCES tessel/bm_validation.cpp
  DEPS    tessel_configuration)
