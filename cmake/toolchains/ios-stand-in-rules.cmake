# CMake asks the Mac that it runs on whether its linker knows of @rpath.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
