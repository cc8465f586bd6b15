# The dropout filler against its plain reference, one core.
ferrotip_add_benchmark(inpaint_bench ${CMAKE_CURRENT_LIST_DIR}/InpaintBench.cpp
  ${PROJECT_SOURCE_DIR}/tests/inpaint/ReferenceInpainters.cpp)
