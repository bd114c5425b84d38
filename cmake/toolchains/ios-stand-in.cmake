# For machines without Xcode: clang, LLVM's linker, and in KX_SDK what tests/platform/apple/sdk/make-sdk
# made. What comes of it has the form of what a Mac makes, and runs nowhere.
set(CMAKE_SYSTEM_NAME iOS)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KX_SDK)
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/ios-stand-in-rules.cmake)
set(CMAKE_OSX_SYSROOT ${KX_SDK})
set(CMAKE_OSX_ARCHITECTURES arm64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 12.0)
foreach(language C CXX OBJC OBJCXX)
  set(CMAKE_${language}_COMPILER /usr/bin/clang-16)
endforeach()
set(CMAKE_CXX_COMPILER /usr/bin/clang++-16)
set(CMAKE_OBJCXX_COMPILER /usr/bin/clang++-16)
set(CMAKE_AR /usr/bin/llvm-ar-16)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib-16)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-16)

get_filename_component(tests ${CMAKE_CURRENT_LIST_DIR}/../../tests ABSOLUTE)
set(flags "-target arm64-apple-ios12.0 -Wno-unused-command-line-argument -isystem ${tests}/examples/ios/frameworks")
set(libcxx "-nostdinc++ -isystem ${KX_SDK}/usr/include/c++/v1")
set(CMAKE_C_FLAGS_INIT "${flags}")
set(CMAKE_OBJC_FLAGS_INIT "${flags}")
set(CMAKE_CXX_FLAGS_INIT "${libcxx} ${flags}")
set(CMAKE_OBJCXX_FLAGS_INIT "${libcxx} ${flags}")
# Of a linker that calls itself younger, clang asks what LLVM's can.
set(linker "-mlinker-version=609 --ld-path=/usr/bin/ld64.lld-16 -lc++abi -lclang_rt.ios")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${linker}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${linker} -Wl,-undefined,dynamic_lookup")  # the app's part of UIKit is no stub
