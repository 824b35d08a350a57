vorna_bench(NAME bm_EventPipeline
  SOURCES bm_EventPipeline.cpp
  DEPS graph)
