# Builds for macOS on another system, with zig as compiler, linker and archiver.
# STOCK_ZIG names the zig program: scripts/cross_darwin fetches one and sets it.

if(NOT STOCK_ZIG AND DEFINED ENV{STOCK_ZIG})
  set(STOCK_ZIG $ENV{STOCK_ZIG})
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES STOCK_ZIG)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_C_COMPILER ${STOCK_ZIG} cc -target x86_64-macos)
set(CMAKE_CXX_COMPILER ${STOCK_ZIG} c++ -target x86_64-macos)

# zig is its own archiver; its archives need no index made by another program.
foreach(language C CXX)
  set(CMAKE_${language}_ARCHIVE_CREATE "${STOCK_ZIG} ar qcs <TARGET> <OBJECTS>")
  set(CMAKE_${language}_ARCHIVE_FINISH "")
endforeach()
set(CMAKE_INSTALL_NAME_TOOL true)  # no installed paths are changed: nothing is installed

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE NEVER)
