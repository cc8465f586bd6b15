# The declipper on seeded real music (mono, 44.1 kHz) hard clipped to each input
# SDR; the x_realtime counter is seconds of audio restored per second.
find_package(PkgConfig REQUIRED)
pkg_check_modules(SNDFILE_DECLIP_BENCH REQUIRED IMPORTED_TARGET sndfile)
ferrotip_add_benchmark(declip_bench ${CMAKE_CURRENT_LIST_DIR}/DeclipBench.cpp)
target_link_libraries(declip_bench PRIVATE PkgConfig::SNDFILE_DECLIP_BENCH)

# Makes the clipped excerpts and scores the results for scripts/bench-declip.sh.
add_executable(declip_material ${CMAKE_CURRENT_LIST_DIR}/DeclipMaterialTool.cpp)
target_link_libraries(declip_material PRIVATE ferrotip::declip ferrotip::ar PkgConfig::SNDFILE_DECLIP_BENCH)
target_include_directories(declip_material PRIVATE ${PROJECT_SOURCE_DIR}/tests)
