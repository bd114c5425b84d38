# The library as script/xcframework makes it. Without KX_XCFRAMEWORK_URL, the pod is the one that was made here.
Pod::Spec.new do |spec|
  spec.name = 'KXPublisher'
  spec.version = '1.0'
  spec.summary = 'Reports the context in which an app runs to a collection service.'
  spec.source = { :http => ENV.fetch('KX_XCFRAMEWORK_URL', "file://#{__dir__}/build/ios/KXPublisher.xcframework.zip") }
  spec.platform = :ios, '12.0'
  spec.vendored_frameworks = '{build/ios/,}KXPublisher.xcframework'
end
