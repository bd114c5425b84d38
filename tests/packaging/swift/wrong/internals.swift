// error: cannot find 'kx' in scope
import KXPublisher

let platform = kx.Platform.current()  // nothing of C++ is in the module
