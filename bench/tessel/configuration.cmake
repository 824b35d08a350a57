vorna_bench(NAME bm_translation
  SOURCES tessel/bm_translation.cpp
  DEPS    tessel_configuration)
