vorna_bench(NAME bm_tensor
  SOURCES bm_tensor.cpp
  DEPS    util trovi_serial)
