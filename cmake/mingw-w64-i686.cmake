# Cross-compiles TMXSDKWin.dll for 32-bit Windows with MinGW-w64:
#   cmake -S . -B build-mingw32 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-i686.cmake \
#     -DBUILD_TESTING=OFF
# The export table is checked with tests/api/check_exports.cmake; scripts/test
# runs the tests too where wine can start 32-bit programs. Everything else is
# as for 64-bit Windows.
set(TMX_MINGW_ARCH i686)
set(TMX_MINGW_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
