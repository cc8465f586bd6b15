# Buffers, block processing, delay lines, frame processor and correlation.
list(APPEND signal_sources
  ${CMAKE_CURRENT_LIST_DIR}/CBuffer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CBuffer2D.cpp
  ${CMAKE_CURRENT_LIST_DIR}/BufferRoutines.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MatrixRoutines.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CProcessSamplesBasis.cpp
  ${CMAKE_CURRENT_LIST_DIR}/CDelay.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DelayClass.cpp)
list(APPEND signal_sources
  ${CMAKE_CURRENT_LIST_DIR}/FftFrameProcessor.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Correlation_std.cpp)
