# Transform kernels against FFTW (a benchmark-only dependency, never linked into the
# library): 2048- and 512-point real and 1024-point complex float transforms.
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFTW3 REQUIRED IMPORTED_TARGET fftw3f fftw3)
ferrotip_add_benchmark(signal_fft_bench ${CMAKE_CURRENT_LIST_DIR}/FftBenchmark.cpp)
target_link_libraries(signal_fft_bench PRIVATE PkgConfig::FFTW3)
