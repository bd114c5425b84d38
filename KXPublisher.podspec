# The library from its sources, for CocoaPods:
#
#   pod 'KXPublisher', :git => '<where this repository is>'
#   pod 'KXPublisher', :path => '<where it lies>'
require 'json'

Pod::Spec.new do |spec|
  about = JSON.parse(File.read(File.join(__dir__, 'packaging/about.json')))
  spec.name = about['name']
  spec.version = about['version']
  spec.summary = about['summary']
  spec.license = { :type => about['licence'], :file => 'LICENSE' }
  spec.authors = about['authors']
  spec.homepage = about['homepage']
  spec.source = { :git => about['source'], :tag => about['version'] }
  spec.documentation_url = about['homepage']

  spec.platform = :ios, '12.0'
  spec.frameworks = %w[AdSupport CoreFoundation CoreLocation CoreTelephony Foundation SystemConfiguration UIKit]
  spec.libraries = 'c++', 'z'
  spec.resource_bundles = { 'KXPublisherPrivacy' => 'packaging/ios/PrivacyInfo.xcprivacy' }

  spec.source_files = 'include/KXPublisher/*.h', 'diagnostics/*.cpp', 'platform/*.cpp', 'platform/foundation/*.cpp',
                      'platform/apple/*.mm', 'bindings/objective-c/*.mm', 'providers/*.cpp', 'publisher/*.cpp',
                      'transport/*.cpp'
  # The constants' counterpart is in Objective-C; the header of those in C is no part of the module.
  spec.exclude_files = 'publisher/KXConstants.cpp', 'include/KXPublisher/KXConstants.h'
  spec.public_header_files = 'include/KXPublisher/*.h'
  spec.preserve_paths = 'include/**/*.{h,hpp}', 'packaging/about.json',
                        '{bindings/objective-c,diagnostics,platform,platform/apple,platform/foundation}/*.h',
                        '{providers,publisher,transport}/*.h'
  spec.requires_arc = true
  # One folder for what hosts include, one for the rest; the module map in the former is Swift Package Manager's.
  spec.pod_target_xcconfig = {
    'CLANG_CXX_LANGUAGE_STANDARD' => 'c++17',
    'CLANG_ENABLE_MODULES' => 'NO',
    'GCC_OPTIMIZATION_LEVEL[config=Release]' => 'z',
    'HEADER_SEARCH_PATHS' => '"$(PODS_TARGET_SRCROOT)/include" "$(PODS_TARGET_SRCROOT)"',
  }
end
