"""The device that the demo plays with: a message bus, a modem, a drive through Berlin, sleep, and a network of its own.

The services are the real ones, ModemManager and GeoClue; what they look at is emulated. logind is python3-dbusmock's.
Everything is on a private bus and in namespaces that end with the demo: nothing of the machine changes, and nothing stays,
not even when the demo is killed.
"""

import os
import subprocess
import time

from programs import PROGRAMS, Program, ProgramError

GEOCLUE = "/usr/libexec/geoclue"
# The first process in there is the demo's own; when it ends, the kernel ends all others.
NAMESPACES = ["--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
FOLDER = "/dev/shm"  # in there, a file system in memory of the demo's own
OWN_FOLDER = ["mount", "-t", "tmpfs", "tmpfs", FOLDER]
NEEDED = {
    "ModemManager": "/usr/sbin/ModemManager",
    "GeoClue": GEOCLUE,
    "dbus-daemon": "/usr/bin/dbus-daemon",
    "iproute2": "/usr/sbin/ip",
    "unshare": "/usr/bin/unshare",
    "gdbus": "/usr/bin/gdbus",
    "python3-dbusmock": "/usr/lib/python3/dist-packages/dbusmock",
}

HANDSET = "11"  # the chassis type of SMBIOS

BUS = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>custom</type><auth>EXTERNAL</auth><listen>{address}</listen>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
"""
LOCATION = """[agent]
whitelist=kx-location-agent
[network-nmea]
enable=true
nmea-socket={socket}
[3g]
enable=false
[cdma]
enable=false
[modem-gps]
enable=false
[wifi]
enable=false
[compass]
enable=false
[{application}]
allowed=true
system=false
users=
"""
ENTRY = """[Desktop Entry]
Type=Application
Name=KXHost
Exec=kx-host
"""


def what_is_missing():
    """Why this machine cannot play the whole demo; None when it can."""
    missing = [name for name, file in NEEDED.items() if not os.access(file, os.X_OK)]
    if missing:
        return f"{', '.join(missing)} is not installed"
    if subprocess.run(["/usr/bin/unshare", *namespaces(), *OWN_FOLDER], capture_output=True, check=False).returncode:
        return "no namespaces can be made here (in a chroot, or by a user who may not)"
    return None


def namespaces():
    """The arguments with which unshare makes the demo's namespaces."""
    return NAMESPACES if os.geteuid() == 0 else ["--map-root-user", *NAMESPACES]


class Surroundings:
    """To be used as a context, inside the namespaces."""

    def __init__(self, application, folder):
        self.application = application
        self.directory = folder
        self.address = f"unix:path={self.directory}/bus"
        self.programs = []
        self.environment = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=self.address,
                                LANGUAGE="de_DE:en_GB", LANG="de_DE.UTF-8", XDG_DATA_HOME=self.directory)

    def __enter__(self):
        try:
            self._begin()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for program in reversed(self.programs):
            program.__exit__()

    def _begin(self):
        _run(*OWN_FOLDER)
        self._make_network()
        self._make_firmware_tables()
        os.mkdir(self._file("applications"))
        self._write(f"applications/{self.application}.desktop", ENTRY)
        self._write("bus.conf", BUS.format(address=self.address))
        self._start("/usr/bin/dbus-daemon", "--nofork", f"--config-file={self._file('bus.conf')}")
        _wait_for("the message bus", lambda: os.path.exists(self._file("bus")))
        self._start("/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind")
        self.modem = self._start(os.path.join(PROGRAMS, "kx-emulated-modem"), "--bus", self.address,
                                 stdin=subprocess.PIPE)
        self._start(os.path.join(PROGRAMS, "kx-simulated-drive"), self._file("nmea"))
        _wait_for("the drive", lambda: os.path.exists(self._file("nmea")))
        os.mkdir(self._file("geoclue"))
        self._write("geoclue/geoclue.conf", LOCATION.format(socket=self._file("nmea"), application=self.application))
        _run("mount", "--bind", self._file("geoclue"), "/etc/geoclue")
        self._start(GEOCLUE)
        self._start(os.path.join(PROGRAMS, "kx-location-agent"), "kx-location-agent", stdin=subprocess.PIPE)
        for name in ("org.freedesktop.ModemManager1", "org.freedesktop.GeoClue2", "org.freedesktop.login1"):
            _wait_for(name, lambda name=name: self._is_on_bus(name))

    def _make_network(self):
        """A Wi-Fi interface with the default route and a cellular one, each a cable to a peer that never answers."""
        _run("ip", "link", "set", "lo", "up")
        for interface, address in (("en0", "192.0.2.20/24"), ("rmnet0", "198.51.100.20/24")):
            _run("ip", "link", "add", interface, "type", "veth", "peer", f"{interface}-peer")
            _run("ip", "link", "set", f"{interface}-peer", "up")
            _run("ip", "link", "set", interface, "up")
            _run("ip", "address", "add", address, "dev", interface)
        _run("ip", "route", "add", "default", "via", "192.0.2.1", "dev", "en0")

    def _make_firmware_tables(self):
        """The kernel's view of a handset; network interfaces are to be seen there as before."""
        _run("mount", "-t", "tmpfs", "tmpfs", "/sys/class")
        os.symlink("/sys/devices/virtual/net", "/sys/class/net")
        os.makedirs("/sys/class/dmi/id")
        for name, text in (("product_name", "Demo Phone"), ("chassis_type", HANDSET)):
            with open(f"/sys/class/dmi/id/{name}", "w", encoding="ascii") as file:
                file.write(text + "\n")

    # ---- What happens to the device

    def lose_wifi(self):
        """Leaves the cellular modem as the only way out."""
        _run("ip", "address", "flush", "dev", "en0")
        _run("ip", "link", "set", "en0", "down")
        _run("ip", "route", "replace", "default", "via", "198.51.100.1", "dev", "rmnet0")

    def change_sim(self, operator, technology):
        """Puts in a SIM of that operator, "26201", in a network of that technology."""
        self.modem.write_line(f"technology {technology}")
        self.modem.write_line(f"sim in {operator}")

    def sleep(self, begins):
        """Has logind announce that the system sleeps, or that it is awake again."""
        self._bus_call("org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.DBus.Mock.EmitSignal",
                       "org.freedesktop.login1.Manager", "PrepareForSleep", "b", f"[<{str(begins).lower()}>]")

    # ----

    def _file(self, name):
        return os.path.join(self.directory, name)

    def _write(self, name, text):
        with open(self._file(name), "w", encoding="utf-8") as file:
            file.write(text)

    def _start(self, *command, **options):
        program = Program(*command, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **options)
        self.programs.append(program)
        return program

    def _bus_call(self, name, path, method, *arguments):
        result = subprocess.run(["/usr/bin/gdbus", "call", "--address", self.address, "--dest", name, "--object-path", path,
                                 "--method", method, *arguments], capture_output=True, text=True, check=False)
        if result.returncode:
            raise ProgramError(f"{name}: {result.stderr.strip()}")
        return result.stdout

    def _is_on_bus(self, name):
        return "true" in self._bus_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                        "org.freedesktop.DBus.NameHasOwner", name)


def _run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False,
                            env=dict(os.environ, PATH="/usr/sbin:/usr/bin:/sbin:/bin"))
    if result.returncode:
        raise ProgramError(f"{' '.join(command)}: {result.stderr.strip()}")


def _wait_for(what, condition, seconds=30):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise ProgramError(f"{what} does not appear")
        time.sleep(0.05)
