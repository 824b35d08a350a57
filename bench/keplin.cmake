vorna_bench(NAME bm_packets
  SOURCES bm_packets.cpp
  DEPS keplin tessel_events)
