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
