# Cross-compiles for 64-bit Windows with Debian's clang and lld, the headers and libraries of MinGW-w64, and GCC's C++
# library (the variant with POSIX threads). Clang doesn't find those in Debian's folders by itself.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

file(GLOB gcc_folders /usr/lib/gcc/x86_64-w64-mingw32/*-posix)
list(SORT gcc_folders COMPARE NATURAL ORDER DESCENDING)
list(GET gcc_folders 0 gcc_folder)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Only these headers, nothing from /usr/include. Clang's own come between the C++ library's and the system's.
set(include_c "-nostdlibinc -idirafter /usr/x86_64-w64-mingw32/include")
set(include_cxx "-nostdinc++ -isystem ${gcc_folder}/include/c++ -isystem ${gcc_folder}/include/c++/x86_64-w64-mingw32")
set(CMAKE_C_FLAGS_INIT "${include_c}")
# The C++ library was built with emulated thread-local storage and shares such variables with its callers.
set(CMAKE_CXX_FLAGS_INIT "${include_cxx} ${include_c} -femulated-tls")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -B${gcc_folder} -L${gcc_folder} -Wno-unused-command-line-argument")
endforeach()

# The PDB records the linker's command line: keep this machine's environment out of it.
set(CMAKE_C_LINKER_LAUNCHER env -u LIBRARY_PATH)
set(CMAKE_CXX_LINKER_LAUNCHER env -u LIBRARY_PATH)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Wine runs what was built, in the project's own prefix, without a display and without offers to install more.
get_filename_component(wine_prefix "${CMAKE_CURRENT_LIST_DIR}/../build/wine" ABSOLUTE)
set(ORVANE_WINE_ENVIRONMENT WINEPREFIX=${wine_prefix} WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml= DISPLAY=)
set(CMAKE_CROSSCOMPILING_EMULATOR env ${ORVANE_WINE_ENVIRONMENT} wine)
