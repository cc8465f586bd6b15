# Both crackle engines on stereo 44.1 kHz music with clicks, per block size; the
# x_realtime counter is seconds of audio processed per second.
ferrotip_add_benchmark(crackle_bench ${CMAKE_CURRENT_LIST_DIR}/CrackleBench.cpp)
