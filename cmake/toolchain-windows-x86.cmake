set(CMAKE_SYSTEM_PROCESSOR i686)
set(TORVANE_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-windows.cmake)
