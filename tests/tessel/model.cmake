vorna_test(NAME chip_model_test
  SOURCES ModelTest.cpp
  DEPS tessel ravik trovi
  LABELS threads
  TIMEOUT 120)
