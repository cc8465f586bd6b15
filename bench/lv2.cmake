# The LV2 plug-in as a host runs it (in-process through lilv), 48 kHz, host block
# 256; x_realtime_per_channel is seconds of audio per second, per channel.
if(TARGET ferrotip_lv2)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(LILV_BENCH REQUIRED IMPORTED_TARGET lilv-0)
  ferrotip_add_benchmark(lv2_bench ${CMAKE_CURRENT_LIST_DIR}/Lv2PluginBench.cpp
    ${PROJECT_SOURCE_DIR}/tests/support/AllocationCounter.cpp)
  target_link_libraries(lv2_bench PRIVATE PkgConfig::LILV_BENCH)
  target_compile_definitions(lv2_bench PRIVATE FERROTIP_LV2_BUNDLE="${FERROTIP_LV2_BUNDLE}")
  set_target_properties(lv2_bench PROPERTIES ENABLE_EXPORTS ON)
  add_dependencies(lv2_bench ferrotip_lv2)
endif()
