# Kalman restoration filter: cost of one processSample by signal order and delay.
ferrotip_add_benchmark(kalman_bench KalmanBench.cpp)
