# The correlation scan's lag kernels (plain loop against each vector path) and a
# whole waveform replacement through process().
ferrotip_add_benchmark(waveform_bench ${CMAKE_CURRENT_LIST_DIR}/WaveformBench.cpp)
