# Cross-compiles for 64-bit Windows with Debian's mingw-w64 (the POSIX thread
# model, which std::thread and Qt need). Give a Qt built for Windows in
# CMAKE_PREFIX_PATH and the same Qt version built for this machine in
# QT_HOST_PATH (moc, rcc, uic and lrelease run here).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${MINGW_TRIPLET}-windres)

# Libraries and packages come from the Windows prefixes only (mingw-w64's own
# and those given in CMAKE_PREFIX_PATH), never from this machine's /usr;
# programs run during the build are this machine's.
list(APPEND CMAKE_FIND_ROOT_PATH /usr/${MINGW_TRIPLET} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
