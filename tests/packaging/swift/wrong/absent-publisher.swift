// error: 'init()' is unavailable
import KXPublisher

let publisher = KXPublisher()  // there is one, and it is not made by the host
