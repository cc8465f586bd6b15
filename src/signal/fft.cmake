# Transform kernels (scalar, AVX2 and AVX-512 paths, chosen at run time) and transform objects.
list(APPEND signal_sources
  ${CMAKE_CURRENT_LIST_DIR}/FftTables.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FftKernels.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FftAvx2Passes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FftAvx512Passes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CFftBasis.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CFft_std.cpp
  ${CMAKE_CURRENT_LIST_DIR}/KernelPath.cpp)
