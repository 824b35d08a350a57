vorna_bench(NAME bm_ChannelHop
  SOURCES bm_ChannelHop.cpp
  DEPS ondra graph_nodes)
