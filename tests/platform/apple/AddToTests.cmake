# Builds and runs the tests of the Apple platform with the others, where the machine has what they need: a project of
# its own, compiled by clang, whose tests are listed among this one's.
find_program(KX_CLANG clang-16)
find_program(KX_CLANGXX clang++-16)
find_path(KX_GNUSTEP_INCLUDE_DIR Foundation/Foundation.h PATHS /usr/include/GNUstep)
find_path(KX_BLOCKS_INCLUDE_DIR Block.h)
find_path(KX_OBJC_INCLUDE_DIR objc/objc-decls.h
  PATHS ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES} /usr/lib/gcc/${CMAKE_LIBRARY_ARCHITECTURE}/12/include)
if(NOT CMAKE_CROSSCOMPILING AND KX_CLANG AND KX_CLANGXX AND KX_GNUSTEP_INCLUDE_DIR AND KX_BLOCKS_INCLUDE_DIR
    AND KX_OBJC_INCLUDE_DIR)
  include(ExternalProject)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/apple)
  ExternalProject_Add(apple-platform-tests
    SOURCE_DIR ${CMAKE_CURRENT_LIST_DIR}
    PREFIX ${folder}
    BINARY_DIR ${folder}
    CMAKE_ARGS
      -DCMAKE_C_COMPILER=${KX_CLANG} -DCMAKE_CXX_COMPILER=${KX_CLANGXX}
      # Nothing of it is shipped: what counts is how soon it can be run.
      -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DCMAKE_OBJCXX_FLAGS_DEBUG=-g1
      -DKX_SANITIZE=${KX_SANITIZE} -DKX_WARNINGS_AS_ERRORS=${KX_WARNINGS_AS_ERRORS}
      -DKX_COLLECTOR_PROGRAM=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/kx-collector
    BUILD_ALWAYS TRUE
    INSTALL_COMMAND "")
  # What ctest reads for this folder; the other project's list is there once that has been built.
  file(WRITE ${folder}/Tests.cmake
    "if(EXISTS \"${folder}/CTestTestfile.cmake\")\n  subdirs(\"${folder}\")\n"
    "else()\n  add_test(apple-platform-tests_NOT_BUILT apple-platform-tests_NOT_BUILT)\nendif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${folder}/Tests.cmake)
else()
  add_test(NAME apple-platform-tests COMMAND ${CMAKE_COMMAND} -E echo "SKIPPED: not cross-compiled, and they need "
    "clang-16, libgnustep-base-dev, libobjc-12-dev and libblocksruntime-dev")
  set_tests_properties(apple-platform-tests PROPERTIES SKIP_REGULAR_EXPRESSION SKIPPED)
endif()
