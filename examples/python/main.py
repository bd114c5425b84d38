import sys, gi
gi.require_version("KxPublisher", "1.0")
from gi.repository import Gio, KxPublisher
api_token, hostname, identifier, ca_file = (*sys.argv[1:], None)[:4]
application = Gio.Application(application_id="com.example.PythonHost")
options = KxPublisher.Options(advertising_identifier=identifier, certificate_authority_file=ca_file)
assert KxPublisher.Publisher.set_options(options)
KxPublisher.Publisher.get_default(api_token, hostname)
application.connect("activate", Gio.Application.hold)
application.run()
