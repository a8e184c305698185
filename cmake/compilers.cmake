# The presets ask for a compiler family (VESTRA_COMPILERS); this picks the names that exist on
# the system at hand. FreeBSD has no g++ and builds its packages with its base clang and libc++,
# so every family is that clang there; on Linux, "gnu" is gcc/g++, "clang" the default clang,
# and "clang-16" Debian's clang-16 (FreeBSD 14.0's base compiler is LLVM 16).
# A compiler given on the command line (-DCMAKE_CXX_COMPILER=...) wins. CMake reads this file again
# inside its own checks, where the family is not set: the compilers are known by then.
if(DEFINED VESTRA_COMPILERS AND NOT CMAKE_CXX_COMPILER)
  if(CMAKE_HOST_SYSTEM_NAME STREQUAL "FreeBSD")
    set(CMAKE_C_COMPILER cc)
    set(CMAKE_CXX_COMPILER c++)
  elseif(VESTRA_COMPILERS STREQUAL "gnu")
    set(CMAKE_C_COMPILER gcc)
    set(CMAKE_CXX_COMPILER g++)
  elseif(VESTRA_COMPILERS STREQUAL "clang")
    set(CMAKE_C_COMPILER clang)
    set(CMAKE_CXX_COMPILER clang++)
  elseif(VESTRA_COMPILERS STREQUAL "clang-16")
    set(CMAKE_C_COMPILER clang-16)
    set(CMAKE_CXX_COMPILER clang++-16)
  else()
    message(FATAL_ERROR "VESTRA_COMPILERS is \"${VESTRA_COMPILERS}\": gnu, clang or clang-16")
  endif()
endif()
