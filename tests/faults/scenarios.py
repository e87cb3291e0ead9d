"""What is disturbed: commands of the tools and the starts of the daemons, each in a state that it meets in use."""
import os

from judge import Rules

SETTINGS = f"cp {os.path.dirname(os.path.dirname(os.path.abspath(__file__)))}/support/networks.settings /run/settings"
INSTALLED = SETTINGS + "; harbrelCLI --migrate-network-settings /run/settings && rm -f /etc/orvane/networking.bak.*"
RUNNING = INSTALLED + " && harbrelCLI --start"
# A change of the editor that was killed before it had put the way back away.
CUT_OFF = (INSTALLED + "; cp /etc/orvane/networking original.database; strace -qq -f -o /dev/null -e trace=unlink -P /etc/orvane/harbrelctl.undo "
           "-e inject=unlink:signal=KILL:when=1 harbrelctl -y --no-apply set zelan8 dns=10.7.8.7 domain=cut.example; "
           "[ -e /etc/orvane/harbrelctl.undo ]")
# ISC dhcpd serves what dnsmasq has no words for.
FOR_DHCPD = INSTALLED + """ && echo 'class "none" { }' >>/etc/orvane/zelan8/dhcpd/dhcpd.conf"""
DAEMONS = ("zelan-bridge", "zelan-netifup", "zelan-dhcpd", "zelan-natd", "zelan-detect")

TOOL = {
    "postinstall": ("true", "--postinstall x,0,1"),
    "upgrade": (RUNNING, "--postinstall x,1.0,1.1"),
    "migration": (INSTALLED, "--migrate-network-settings /run/settings"),
    "withdrawal": (RUNNING, "--uninstall-host-policy"),
    "status": (RUNNING, "--status"),
    "start": (INSTALLED, "--start"),
    "stop": (RUNNING, "--stop"),
}
EDITOR = {
    "edit": (RUNNING, "set zelan1 subnet=10.7.9.0/24 lease-time=600"),
    "edit-addition": (RUNNING, "add zelan3 --nat --subnet 10.7.3.0/24"),
    "edit-removal": (RUNNING, "remove zelan8"),
    "edit-forward": (RUNNING, "forward add zelan8 tcp 8888 10.7.8.10:80"),
    "edit-import": (INSTALLED + "; sed -i s/10.7.8/10.7.9/ /run/settings", "import /run/settings"),
    "edit-behind-kill": (CUT_OFF, "--no-apply set zelan1 dns=10.7.1.7"),
    "apply": (INSTALLED, "apply"),
}


def edited(before, arguments):
    """The editor names the steps of a change that have failed, and leaves them to `apply`."""
    command = f"harbrelctl -y {arguments}"
    return before, command, f"{command}; status=$?; harbrelctl -y apply; exit $status", "harbrelctl"


# The policy restarts what ran when it was installed, which a failure before has stopped.
POLICY = "harbrelCLI --install-host-policy=172.16.200.0,1"


def twice(before, command, traced):
    return before, command, command, traced


# name: (state before, command, what follows it, the program whose calls are disturbed)
SCENARIOS = {
    **{name: twice(before, f"harbrelCLI {arguments}", "harbrelCLI") for name, (before, arguments) in TOOL.items()},
    "policy": (RUNNING, POLICY, f"{POLICY}; status=$?; harbrelCLI --start; exit $status", "harbrelCLI"),
    **{name: edited(*change) for name, change in EDITOR.items()},
    "zelan-watch": twice(INSTALLED, "harbrelCLI --start && harbrelCLI --stop", "zelan-watch"),
    **{daemon: twice(INSTALLED, "harbrelCLI --start", daemon) for daemon in DAEMONS},
    "isc-dhcpd": twice(FOR_DHCPD, "harbrelCLI --start", "zelan-dhcpd"),
}

RULES = {
    **{name: Rules(editor=True) for name in EDITOR},
    "migration": Rules(removes_first=True),
    "upgrade": Rules(begins_anew=True),
    "policy": Rules(stripped="8"),
}

# Faults that have found something, or stand for many: scenario, call, error, and words of the place.
KNOWN = (
    ("zelan-netifup", "rename", "KILL", "WriteRecord|Daemon_Guard"),
    ("zelan-netifup", "rename", "KILL", "Daemon_Detach"),
    ("zelan-dhcpd", "rename", "KILL", "zelan-dhcpd-zelan#.pid"),
    ("isc-dhcpd", "rename", "KILL", "zelan-dhcpd-zelan#.pid"),
    ("zelan-natd", "sendto", "EACCES", "Address_ForEach"),
    ("zelan-natd", "sendto", "EACCES", "Commit.*EnsureFlowChain"),
    ("zelan-natd", "sendto", "EACCES", "Commit.*RouterTable_Load"),
    ("zelan-natd", "openat", "ENOSPC", "HostForwarding_TurnOn.*UseAdapters"),
    ("zelan-natd", "unshare", "KILL", "Router_Make"),
    ("zelan-natd", "unshare", "ENOMEM", "Router_Make"),
    ("zelan-bridge", "ioctl", "EPERM", "Tap::Make"),
    ("zelan-bridge", "bpf", "KILL", "KernelPath::Begin"),
    ("postinstall", "write", "ENOSPC", "networking.lck"),
    ("postinstall", "rename", "KILL", "HBL_CreateNetworkingDB"),
    ("upgrade", "unlinkat", "EACCES", "/tmp/.* M#.lck"),
    ("upgrade", "openat", "EMFILE", "networking.lck"),
    ("upgrade", "fsync", "EIO", "networking.bak"),
    ("upgrade", "rename", "KILL", "networking.bak"),
    ("migration", "rename", "EIO", "HBL_Unload"),
    ("migration", "write", "KILL", "nat.conf"),
    ("policy", "vfork", "EAGAIN", "HBL_StartService"),
    ("policy", "unlink", "KILL", "zelan-natd-#.pid"),
    ("status", "openat", "EMFILE", "zelan-natd-#.pid"),
)
