// error: cannot find 'KXPublisherSimulatedDevice' in scope
import KXPublisher

let device = KXPublisherSimulatedDevice.install()  // it is in a module of its own
