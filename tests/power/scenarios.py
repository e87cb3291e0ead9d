"""The commands that lose power, and what is promised of each."""
from typing import NamedTuple

RECORDS = r"""'answer HBL_DEFAULT_BRIDGE_VNET 0' 'answer VNET_1_DHCP yes' 'answer VNET_1_HOSTONLY_NETMASK 255.255.255.0' \
'answer VNET_1_HOSTONLY_SUBNET 10.7.1.0' 'answer VNET_1_VIRTUAL_ADAPTER yes' 'answer VNET_8_DHCP yes' \
'answer VNET_8_HOSTONLY_NETMASK 255.255.255.0' 'answer VNET_8_HOSTONLY_SUBNET 10.7.8.0' 'answer VNET_8_NAT yes' \
'answer VNET_8_VIRTUAL_ADAPTER yes' 'add_nat_portfwd 8 tcp 8080 10.7.8.5 80 web' \
'add_dhcp_mac_to_ip 8 00:0C:29:00:00:01 10.7.8.9' 'add_bridge_mapping eth7 2'"""
DATABASE = f"printf '%s\\n' VERSION=1,0 {RECORDS} >/etc/orvane/networking; chmod 600 /etc/orvane/networking"
# Of such a size that a line of a change is cut by the end of a block, in its value.
BLOCK = f"{DATABASE}; printf 'answer FILLER_A %01700d\\nanswer FILLER_B %01777d\\n' 0 0 >>/etc/orvane/networking"
# With lines of a run that was killed, so that the file is not as a rewrite leaves it.
JOURNAL = f"{DATABASE}; printf 'remove_answer VNET_1_DHCP\\nanswer VNET_1_DHCP no\\n' >>/etc/orvane/networking"
SETTINGS = "printf '%s\\n' BACKUP_VERSION=1,0 'answer VNET_3_HOSTONLY_SUBNET 10.9.3.0' 'answer VNET_3_DHCP no' >/tmp/settings"
INSTALLED = f"printf '%s\\n' BACKUP_VERSION=1,0 {RECORDS} >/tmp/settings; harbrelCLI --migrate-network-settings /tmp/settings"
# The administrator's own text in a generated file.
OWN_TEXT = "echo '# the words of the administrator' >>/etc/orvane/zelan8/dhcpd/dhcpd.conf"
LEASES = r"""printf '%s\n' 'lease 10.7.8.130 {' '  starts 1 2026/01/05 10:00:00;' '  ends never;' '  binding state active;' \
'  hardware ethernet 02:00:00:00:00:01;' '}' >/etc/orvane/leases"""


class Scenario(NamedTuple):
    name: str
    prepare: str
    command: str
    status: int = 0
    lasts: bool = True  # all of the disk is sure once the command has ended
    repeats: bool = True  # the same command again gives the undisturbed result
    locks: bool = False  # the lock on the database is looked at as well
    mends: str = ""  # a command that takes back what is half done, so that the change is there whole or not at all
    whole: tuple = ()  # files that hold what they held at some moment
    kept: tuple = ()  # texts that some file holds at every moment
    result: tuple = ()  # files that belong to the result, beside the database


def driver(action, prepare, **promises):
    return Scenario(action, prepare, f"power_driver {action}", **promises)


NETWORK_FILES = ("/etc/orvane/zelan8/dhcpd/dhcpd.conf", "/etc/orvane/zelan8/nat/nat.conf")
LIST = (
    # A change of the library's lasts when the library is unloaded.
    driver("change", DATABASE, lasts=False),
    driver("change", BLOCK, lasts=False)._replace(name="change-block"),
    driver("rewrite", DATABASE),
    driver("look", DATABASE),
    driver("look", JOURNAL)._replace(name="look-journal"),
    # Whatever is left of a lock, the next program gets it, and leaves none.
    driver("lock", DATABASE, lasts=False, locks=True),
    driver("import", f"{DATABASE}; {SETTINGS}", kept=("10.7.8.9",)),
    driver("import-loaded", f"{DATABASE}; {SETTINGS}", kept=("10.7.8.9",)),
    driver("export", DATABASE, result=("/tmp/networking_export",)),
    driver("create", DATABASE, kept=("10.7.8.9",)),
    driver("files", f"{INSTALLED}; {OWN_TEXT}", kept=("words of the administrator",)),
    driver("leases", LEASES, whole=("/etc/orvane/leases",), result=("/etc/orvane/leases",)),
    driver("mac", "true", whole=("/etc/orvane/mac",)),
    Scenario("postinstall", "true", "harbrelCLI --postinstall x,0,1", result=NETWORK_FILES),
    Scenario("upgrade", INSTALLED, "harbrelCLI --postinstall x,1.0,1.1", result=NETWORK_FILES),
    Scenario("migration", f"{DATABASE}; {SETTINGS}", "harbrelCLI --migrate-network-settings /tmp/settings"),
    Scenario("policy", INSTALLED, "harbrelCLI --install-host-policy=172.16.200.0,1", result=NETWORK_FILES),
    Scenario("editor", INSTALLED, "harbrelctl --yes set zelan8 range=10.7.8.100-10.7.8.120 lease-time=600 domain=lab nat=off", result=NETWORK_FILES,
             whole=("/etc/orvane/harbrelctl.undo",), mends="harbrelctl --dry-run set zelan8 domain=other"),
)
SCENARIOS = {scenario.name: scenario for scenario in LIST}
