# Included at the beginning of a project that adds the library: once that has done so, a host in Objective-C++ that gets
# its headers from the library's target.
set(host_source ${CMAKE_CURRENT_LIST_DIR}/ObjectiveCxxHost.mm)
cmake_language(DEFER CALL add_library objective-c++-host OBJECT ${host_source})
cmake_language(DEFER CALL target_compile_options objective-c++-host PRIVATE -fobjc-arc)
cmake_language(DEFER CALL target_link_libraries objective-c++-host PRIVATE KXPublisher::KXPublisher)
cmake_language(DEFER CALL set_target_properties objective-c++-host PROPERTIES
  OBJCXX_STANDARD 17 OBJCXX_STANDARD_REQUIRED ON)
