# Cross-compiles the Windows host with MinGW-w64 (posix threads) on Linux.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KESTRUN_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KESTRUN_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KESTRUN_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KESTRUN_MINGW_PREFIX}-windres)
set(CMAKE_DLLTOOL ${KESTRUN_MINGW_PREFIX}-dlltool)

set(CMAKE_FIND_ROOT_PATH /usr/${KESTRUN_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The MinGW runtime (libstdc++, libgcc, winpthread) is linked statically so that every program and
# DLL runs from its folder without extra runtime DLLs beside it.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Windows programs built here run under Wine (scripts/lib/wine-run sets up the display and prefix).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/lib/wine-run)
