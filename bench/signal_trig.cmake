# The cosine and sine: table builds and calls on the fast path, and the slow path.
ferrotip_add_benchmark(signal_trig_bench ${CMAKE_CURRENT_LIST_DIR}/CosineTableBench.cpp
  ${CMAKE_CURRENT_LIST_DIR}/AccurateTrigBench.cpp)
