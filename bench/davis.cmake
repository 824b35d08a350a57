vorna_bench(NAME bm_cameras
  SOURCES bm_cameras.cpp
  DEPS davis davis_recording emulation_cameras graph_nodes)
