# Cross-compiles TMXSDKWin.dll and the tests for 64-bit Windows with MinGW-w64;
# the tests run under wine:
#   cmake -S . -B build-mingw64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# GoogleTest is built from /usr/src/googletest (tests/CMakeLists.txt).
# mingw-w64-i686.cmake sets the 32-bit target and includes this file.
if(NOT TMX_MINGW_ARCH)
  set(TMX_MINGW_ARCH x86_64)
  set(TMX_MINGW_PROCESSOR x86_64)
endif()
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${TMX_MINGW_PROCESSOR})
set(CMAKE_C_COMPILER ${TMX_MINGW_ARCH}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${TMX_MINGW_ARCH}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${TMX_MINGW_ARCH}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${TMX_MINGW_ARCH}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# The programs carry the compiler's runtime, so that wine needs no DLLs
# besides the system's own and TMXSDKWin.dll next to them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
