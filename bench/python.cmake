# What the benchmarks of bench/python/*.py need; `make bench` runs those (soak.py, a minute long, by hand).
if(VORNA_PYTHON)
  pybind11_add_module(bare MODULE NO_EXTRAS EXCLUDE_FROM_ALL python/BareModule.cpp)
  target_compile_definitions(bare PRIVATE BARE_CLASSES=227 BARE_MEMBERS=12) # as many as vorna has
endif()
add_executable(rpc_floor python/RpcFloor.cpp)
target_link_libraries(rpc_floor PRIVATE vorna_flags PkgConfig::ZMQ)
