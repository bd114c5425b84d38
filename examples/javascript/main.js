// usage: gjs -m main.js API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE]
import Gio from 'gi://Gio';
import KxPublisher from 'gi://KxPublisher?version=1.0';

const [apiToken, hostname, advertisingIdentifier, certificateAuthorityFile = null] = ARGV;
const application = new Gio.Application({application_id: 'com.example.JavaScriptHost'});

const options = new KxPublisher.Options({advertisingIdentifier, certificateAuthorityFile});
if (!KxPublisher.Publisher.set_options(options)) logError(new Error('The options come too late'));
KxPublisher.Publisher.get_default(apiToken, hostname);

application.connect('activate', () => application.hold());
application.run([]);
