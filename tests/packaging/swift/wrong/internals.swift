// error: type 'KXPublisher' has no member 'kxLog'
import KXPublisher

let log = KXPublisher.kxLog()  // nothing of C++ is in the module
