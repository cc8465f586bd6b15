# Delay lines, the frame processor and correlation at the crackle engine's sizes.
ferrotip_add_benchmark(signal_blocks_bench ${CMAKE_CURRENT_LIST_DIR}/SignalBlocksBench.cpp)
