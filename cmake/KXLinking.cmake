# How the shared library is linked on Linux: it exports what KXPublisher.map names and nothing else, is small, and takes
# the loader little. All of it is the library's own: what a host is built with stays as it is.
include(CheckCXXSourceCompiles)
include(CheckIPOSupported)

# A build that takes the library into a host's own is optimised as the host is.
option(KX_LTO "Optimise the shared library as a whole when it is linked, in the configurations MinSizeRel and Release"
  ${PROJECT_IS_TOP_LEVEL})

# Whether relocations that only move a pointer can be packed, to 2 bits each instead of 24 bytes. A loader that does not
# know them would leave them out: glibc has the library refused by one that is older, other C libraries do not.
function(kx_check_packed_relocations)
  set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--fatal-warnings -Wl,-z,pack-relative-relocs)
  check_cxx_source_compiles("#include <features.h>
    #if !__GLIBC_PREREQ(2, 36)
    #error its loader does not know packed relocations
    #endif
    int main() {}" KX_PACKED_RELOCATIONS)
endfunction()

# Links a shared library of this project.
function(kx_link_shared target)
  set(map ${PROJECT_SOURCE_DIR}/cmake/KXPublisher.map)
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${map}
    -Wl,-Bsymbolic-functions  # what it calls of itself is its own, and not looked up when it is loaded
    -Wl,--gc-sections)
  kx_check_packed_relocations()
  if(KX_PACKED_RELOCATIONS)
    target_link_options(${target} PRIVATE -Wl,-z,pack-relative-relocs)
  endif()
endfunction()

# Has a shared library optimised as a whole, where that is wanted and the compiler can. Where `archive` is another library
# of the same objects, these have to be code, too.
function(kx_optimise_as_a_whole target archive)
  check_ipo_supported(RESULT supported OUTPUT ignored LANGUAGES CXX)
  if(NOT supported OR NOT KX_LTO OR KX_SANITIZE)
    return()
  endif()
  if(KX_BUILD_TESTS OR KX_BUILD_BENCHMARKS OR KX_BUILD_PROGRAMS)  # they link the archive
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
      return()  # others write one or the other
    endif()
    target_compile_options(${target} PRIVATE $<$<CONFIG:MinSizeRel,Release>:-ffat-lto-objects>)
    target_link_options(${archive} INTERFACE $<$<CONFIG:MinSizeRel,Release>:-fno-lto>)
  endif()
  set_target_properties(${target} PROPERTIES
    INTERPROCEDURAL_OPTIMIZATION_MINSIZEREL ON INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
endfunction()
