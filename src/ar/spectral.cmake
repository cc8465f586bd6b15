list(APPEND ar_sources
  AnalysisFrame.cpp
  FrameChain.cpp
  SplitRadixFft.cpp
  StageTwiddles.cpp)
