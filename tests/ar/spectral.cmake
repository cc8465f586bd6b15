list(APPEND ar_test_sources
  AnalysisFrameTest.cpp
  FrameChainTest.cpp
  SplitRadixFftTest.cpp
  StageTwiddlesTest.cpp)
