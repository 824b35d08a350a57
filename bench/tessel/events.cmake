vorna_bench(NAME bm_codec
  SOURCES tessel/bm_codec.cpp
  DEPS tessel_events)
