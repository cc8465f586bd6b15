# The file-level declick driver per preset, on one and two threads; the x_realtime
# counter is seconds of audio processed per second.
ferrotip_add_benchmark(declick_bench ${CMAKE_CURRENT_LIST_DIR}/DeclickBench.cpp)
# The impulse search's kernels on each instruction-set path.
ferrotip_add_benchmark(impulse_kernels_bench ${CMAKE_CURRENT_LIST_DIR}/ImpulseKernelsBench.cpp)
