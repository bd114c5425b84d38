// usage: main API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE]
int main (string[] args) {
  if (args.length < 4) return 2;
  var application = new Application ("com.example.ValaHost", ApplicationFlags.FLAGS_NONE);

  var options = new Kx.Options ();
  options.advertising_identifier = args[3];
  options.certificate_authority_file = args[4];
  if (!Kx.Publisher.set_options (options)) warning ("The options come too late");
  Kx.Publisher.get_default (args[1], args[2]);

  application.activate.connect (application.hold);
  return application.run ();
}
