# The simulated device, for an app's unit tests. A pod of its own, lest it come into the app:
#
#   target 'AppTests' do
#     inherit! :search_paths
#     pod 'KXPublisherTestKit', :git => '<where this repository is>'
#   end
require 'json'

Pod::Spec.new do |spec|
  about = JSON.parse(File.read(File.join(__dir__, 'packaging/about.json')))
  spec.name = "#{about['name']}TestKit"
  spec.version = about['version']
  spec.summary = 'A simulated device and collection service, to test apps that report by KXPublisher.'
  spec.license = { :type => about['licence'], :file => 'LICENSE' }
  spec.authors = about['authors']
  spec.homepage = about['homepage']
  spec.source = { :git => about['source'], :tag => about['version'] }

  spec.platform = :ios, '12.0'
  spec.dependency 'KXPublisher', about['version']
  spec.frameworks = 'Foundation'
  spec.libraries = 'c++', 'z'

  spec.source_files = 'include/KXPublisher/testkit/*.h', 'platform/simulated/Simulated*.cpp',
                      'bindings/objective-c/testkit/*.mm'
  spec.public_header_files = 'include/KXPublisher/testkit/*.h'
  spec.preserve_paths = 'include/**/*.{h,hpp}', 'platform/{foundation,simulated}/*.h', 'packaging/about.json'
  spec.requires_arc = true
  spec.pod_target_xcconfig = {
    'CLANG_CXX_LANGUAGE_STANDARD' => 'c++17',
    'CLANG_ENABLE_MODULES' => 'NO',
    'HEADER_SEARCH_PATHS' => '"$(PODS_TARGET_SRCROOT)/include" "$(PODS_TARGET_SRCROOT)"',
  }
end
