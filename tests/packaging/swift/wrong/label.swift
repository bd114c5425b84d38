// error: incorrect argument label in call (have 'apiToken:host:', expected 'apiToken:hostname:')
import KXPublisher

let publisher = KXPublisher.sharedInstance(apiToken: nil, host: nil)
