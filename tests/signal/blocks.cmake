# Tests of the buffers, block processing, delay lines, frame processor, correlation and
# the spreading of tasks over threads.
find_package(Threads REQUIRED)
ferrotip_add_tests(signal_blocks
  LIBRARIES ferrotip::signal Threads::Threads
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/../support/AllocationCounter.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CBufferTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CBuffer2DTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/BufferRoutinesTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MatrixRoutinesTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CProcessSamplesBasisTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CDelayTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/DelayClassTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/FftFrameProcessorTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/CorrelationTest.cpp
    ${CMAKE_CURRENT_LIST_DIR}/SpreadOverThreadsTest.cpp)
