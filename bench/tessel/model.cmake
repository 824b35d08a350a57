vorna_bench(NAME bm_model
  SOURCES tessel/bm_model.cpp
  DEPS tessel device graph_nodes)
