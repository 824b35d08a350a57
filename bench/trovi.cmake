vorna_bench(NAME bm_serial
  SOURCES bm_serial.cpp
  DEPS    trovi_serial davis_events)
vorna_bench(NAME bm_rpc
  SOURCES bm_rpc.cpp
  DEPS    trovi)
