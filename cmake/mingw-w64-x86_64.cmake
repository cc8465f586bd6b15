# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 toolchain
# (packages g++-mingw-w64-x86-64-posix and binutils-mingw-w64-x86-64).
#
#   cmake -S . -B build-win -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
#   ninja -C build-win ferrotip_module      # -> build-win/src/Ferrotip_x64.dll
#
# The posix thread model gives the complete C++ standard library; the module is
# linked with -static, so libwinpthread, libstdc++ and libgcc end up inside the
# DLL and it imports system DLLs only. Set FERROTIP_MINGW_THREADS=win32 to use
# the other variant of the compilers instead.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(FERROTIP_MINGW_TRIPLET x86_64-w64-mingw32)
if(NOT DEFINED FERROTIP_MINGW_THREADS)
  if(DEFINED ENV{FERROTIP_MINGW_THREADS})
    set(FERROTIP_MINGW_THREADS "$ENV{FERROTIP_MINGW_THREADS}")
  else()
    set(FERROTIP_MINGW_THREADS posix)
  endif()
endif()

find_program(CMAKE_C_COMPILER NAMES ${FERROTIP_MINGW_TRIPLET}-gcc-${FERROTIP_MINGW_THREADS}
                                    ${FERROTIP_MINGW_TRIPLET}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${FERROTIP_MINGW_TRIPLET}-g++-${FERROTIP_MINGW_THREADS}
                                      ${FERROTIP_MINGW_TRIPLET}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${FERROTIP_MINGW_TRIPLET}-windres)
find_program(CMAKE_AR NAMES ${FERROTIP_MINGW_TRIPLET}-ar)
find_program(CMAKE_RANLIB NAMES ${FERROTIP_MINGW_TRIPLET}-ranlib)

# Look for headers and libraries in the cross sysroot only; programs on the build host.
set(CMAKE_FIND_ROOT_PATH /usr/${FERROTIP_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs built here run on the build host under Wine.
find_program(FERROTIP_WINE NAMES wine)
if(FERROTIP_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FERROTIP_WINE})
endif()
