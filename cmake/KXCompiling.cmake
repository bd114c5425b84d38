# How everything of this project is compiled: C++17, hidden visibility, strict warnings, hardened, with a sanitizer when
# one is chosen, and through ccache when it is there.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
endif()

option(KX_WARNINGS_AS_ERRORS "Let a warning end the build" OFF)
option(KX_HARDENING "Build with the stack protector, fortified calls and relocations that become read-only" ON)
option(KX_CCACHE "Compile through ccache, where it is there" ${PROJECT_IS_TOP_LEVEL})

set(KX_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
if(KX_SANITIZE)
  # With lines, which are what a report names.
  add_compile_options(-fsanitize=${KX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    $<$<CXX_COMPILER_ID:Clang>:-gline-tables-only>)
  add_link_options(-fsanitize=${KX_SANITIZE})
endif()

if(KX_CCACHE)
  find_program(KX_CCACHE_PROGRAM ccache)
  mark_as_advanced(KX_CCACHE_PROGRAM)
  if(KX_CCACHE_PROGRAM)
    foreach(language C CXX OBJCXX)
      if(NOT CMAKE_${language}_COMPILER_LAUNCHER)
        # Without this, what includes a precompiled header is compiled anew each time.
        set(CMAKE_${language}_COMPILER_LAUNCHER
          ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${KX_CCACHE_PROGRAM})
      endif()
    endforeach()
  endif()
endif()

if(KX_HARDENING)
  include(CheckPIESupported)
  check_pie_supported(OUTPUT_VARIABLE ignored)  # with it, CMake links programs as it compiles them
endif()

# Compiles a target of this project by the house's rules.
function(kx_compile_options target)
  if(PROJECT_IS_TOP_LEVEL OR KX_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE
      -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
      $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)
  else()
    target_compile_options(${target} PRIVATE -w)  # what a host wants to be warned of is in its own code
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL Linux AND CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)  # or large files could not be opened
  endif()
  set_target_properties(${target} PROPERTIES
    COMPILE_WARNING_AS_ERROR ${KX_WARNINGS_AS_ERRORS}
    C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(KX_HARDENING AND CMAKE_SYSTEM_NAME STREQUAL Linux)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack)
    if(NOT KX_SANITIZE)
      # Only code that is optimised can be fortified.
      target_compile_options(${target} PRIVATE
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    endif()
  endif()
endfunction()
