vorna_test(NAME chip_configuration_test
  SOURCES ConfigurationTest.cpp TranslationTest.cpp
  DEPS tessel_configuration ravik_configuration)
