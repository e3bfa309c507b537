# Cross-compiles for Windows on ARM with Debian's clang-22 and lld-22 and the
# sysroot scripts/woa/build-toolchain.sh builds (mingw-w64 CRT, libc++).
#   WOA_ARCH=aarch64   native ARM64 code
#   WOA_ARCH=arm64ec   ARM64EC code; setuputils.dll is then linked as ARM64X,
#                      holding the native ARM64 view as well (cmake/arm64x.cmake)
#   WOA_TOOLCHAIN      the folder build-toolchain.sh printed (or
#                      $SETUPUTILS_WOA_TOOLCHAIN)
set(WOA_ARCH "aarch64" CACHE STRING "aarch64 or arm64ec")
set_property(CACHE WOA_ARCH PROPERTY STRINGS aarch64 arm64ec)
set(WOA_TOOLCHAIN "$ENV{SETUPUTILS_WOA_TOOLCHAIN}" CACHE PATH "Folder made by scripts/woa/build-toolchain.sh")
set(WOA_LLVM "/usr/lib/llvm-22" CACHE PATH "LLVM 22 installation")
if(NOT WOA_ARCH MATCHES "^(aarch64|arm64ec)$")
  message(FATAL_ERROR "WOA_ARCH must be aarch64 or arm64ec, not '${WOA_ARCH}'")
endif()
if(NOT EXISTS "${WOA_TOOLCHAIN}/.complete")
  message(FATAL_ERROR "No Windows-on-ARM toolchain at '${WOA_TOOLCHAIN}': run "
                      "scripts/woa/build-toolchain.sh and pass the folder it prints as WOA_TOOLCHAIN")
endif()
# The compiler checks run in projects of their own; they need the same settings.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES WOA_ARCH WOA_TOOLCHAIN WOA_LLVM)

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${WOA_ARCH})
set(_triple ${WOA_ARCH}-w64-mingw32)

set(CMAKE_C_COMPILER ${WOA_LLVM}/bin/clang)
set(CMAKE_CXX_COMPILER ${WOA_LLVM}/bin/clang++)
set(CMAKE_C_COMPILER_TARGET ${_triple})
set(CMAKE_CXX_COMPILER_TARGET ${_triple})
set(CMAKE_RC_COMPILER ${WOA_LLVM}/bin/llvm-windres)
set(CMAKE_RC_FLAGS_INIT "--target=${_triple}")
set(CMAKE_AR ${WOA_LLVM}/bin/llvm-ar)
set(CMAKE_RANLIB ${WOA_LLVM}/bin/llvm-ranlib)
set(CMAKE_OBJDUMP ${WOA_LLVM}/bin/llvm-objdump)
set(CMAKE_SYSROOT ${WOA_TOOLCHAIN}/sysroot)

set(_resource "-resource-dir=${WOA_TOOLCHAIN}/resource")
set(CMAKE_C_FLAGS_INIT "${_resource}")
set(CMAKE_CXX_FLAGS_INIT "${_resource} -stdlib=libc++")

# For the ARM64 tests under Wine only: Wine 8's ARM64 C runtime cannot take a
# va_list from ARM64 code, so formatting goes through mingw-w64's own printf, a
# libc++ built the same way and scripts/woa/wine-test-stdio.c
# (build-toolchain.sh --wine-test).
option(WOA_WINE_TEST "Format through mingw-w64's printf, for the ARM64 tests under Wine" OFF)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES WOA_WINE_TEST)
# libc++ and libunwind go inside each image (the sysroot holds static ones only):
# the installer extracts the library to a temporary folder where no runtime DLL
# lies beside it.
set(_link "-fuse-ld=lld ${_resource} -rtlib=compiler-rt -unwindlib=libunwind -stdlib=libc++ -static")
if(WOA_WINE_TEST)
  if(NOT EXISTS "${WOA_TOOLCHAIN}/wine-test/.complete" OR
     NOT EXISTS "${WOA_TOOLCHAIN}/wine-test/lib/wine_test_stdio.o")
    message(FATAL_ERROR "WOA_WINE_TEST needs scripts/woa/build-toolchain.sh --wine-test")
  endif()
  string(APPEND CMAKE_C_FLAGS_INIT " -D__USE_MINGW_ANSI_STDIO=1")
  string(APPEND CMAKE_CXX_FLAGS_INIT " -D__USE_MINGW_ANSI_STDIO=1")
  set(_link "-L${WOA_TOOLCHAIN}/wine-test/lib ${WOA_TOOLCHAIN}/wine-test/lib/wine_test_stdio.o ${_link}")
endif()
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_link}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_link}")

set(CMAKE_FIND_ROOT_PATH ${WOA_TOOLCHAIN}/sysroot/${_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
