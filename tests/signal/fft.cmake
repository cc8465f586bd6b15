# Tests of the transform kernels, tables and transform objects.
ferrotip_add_tests(signal_fft
  LIBRARIES ferrotip::signal
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/../support/AllocationCounter.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PortableCosineTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/FftTablesTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/FftKernelsTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/FftKernelPathsTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CFftBasisTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CFft_stdTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CFftTest.cpp)

# The cosine and sine against GCC's 113-bit __float128 functions (libquadmath, which
# comes with GCC). The sanitizer build draws a tenth of the random arguments.
ferrotip_add_tests(signal_trig
  LIBRARIES ferrotip::signal quadmath
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/CorrectlyRoundedTrigTest.cpp)
if(FERROTIP_SANITIZE)
  target_compile_definitions(signal_trig_tests PRIVATE FERROTIP_TRIG_RANDOM_DOUBLES=1000000)
endif()
