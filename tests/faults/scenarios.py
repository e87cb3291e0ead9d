"""What is disturbed: commands of the tools and the starts of the daemons, each in a state that it meets in use."""

SETTINGS = r"""printf '%s\n' 'BACKUP_VERSION=1,0' 'answer VNET_1_DHCP yes' \
'answer VNET_1_HOSTONLY_NETMASK 255.255.255.0' 'answer VNET_1_HOSTONLY_SUBNET 10.7.1.0' \
'answer VNET_1_VIRTUAL_ADAPTER yes' 'answer VNET_8_DHCP yes' 'answer VNET_8_HOSTONLY_NETMASK 255.255.255.0' \
'answer VNET_8_HOSTONLY_SUBNET 10.7.8.0' 'answer VNET_8_NAT yes' 'answer VNET_8_VIRTUAL_ADAPTER yes' \
'add_nat_portfwd 8 tcp 8080 10.7.8.5 80 web' 'add_dhcp_mac_to_ip 8 00:0C:29:00:00:01 10.7.8.9' >/run/settings"""
INSTALLED = SETTINGS + "; harbrelCLI --migrate-network-settings /run/settings && rm -f /etc/orvane/networking.bak.*"
RUNNING = INSTALLED + " && harbrelCLI --start"
# A change of the editor that was killed before it had put the way back away.
CUT_OFF = (INSTALLED + "; strace -qq -f -o /dev/null -e trace=unlink -P /etc/orvane/harbrelctl.undo "
           "-e inject=unlink:signal=KILL:when=1 harbrelctl -y --no-apply set zelan8 dns=10.7.8.7 domain=cut.example; "
           "[ -e /etc/orvane/harbrelctl.undo ]")
DAEMONS = ("zelan-bridge", "zelan-netifup", "zelan-dhcpd", "zelan-natd", "zelan-detect")

# name: (state before, command, the program whose calls are disturbed)
SCENARIOS = {
    "postinstall": ("true", "harbrelCLI --postinstall x,0,1", "harbrelCLI"),
    "upgrade": (RUNNING, "harbrelCLI --postinstall x,1.0,1.1", "harbrelCLI"),
    "migration": (INSTALLED, "harbrelCLI --migrate-network-settings /run/settings", "harbrelCLI"),
    "policy": (RUNNING, "harbrelCLI --install-host-policy=172.16.200.0,1", "harbrelCLI"),
    "withdrawal": (RUNNING, "harbrelCLI --uninstall-host-policy", "harbrelCLI"),
    "status": (RUNNING, "harbrelCLI --status", "harbrelCLI"),
    "start": (INSTALLED, "harbrelCLI --start", "harbrelCLI"),
    "stop": (RUNNING, "harbrelCLI --stop", "harbrelCLI"),
    "edit": (RUNNING, "harbrelctl -y set zelan1 subnet=10.7.9.0/24 lease-time=600", "harbrelctl"),
    "edit-addition": (RUNNING, "harbrelctl -y add zelan3 --nat --subnet 10.7.3.0/24", "harbrelctl"),
    "edit-removal": (RUNNING, "harbrelctl -y remove zelan8", "harbrelctl"),
    "edit-forward": (RUNNING, "harbrelctl -y forward add zelan8 tcp 8888 10.7.8.10:80", "harbrelctl"),
    "edit-import": (INSTALLED + "; sed -i s/10.7.8/10.7.9/ /run/settings", "harbrelctl -y import /run/settings",
                    "harbrelctl"),
    "edit-behind-kill": (CUT_OFF, "harbrelctl -y --no-apply set zelan1 dns=10.7.1.7", "harbrelctl"),
    "apply": (INSTALLED, "harbrelctl -y apply", "harbrelctl"),
    "zelan-watch": (INSTALLED, "harbrelCLI --start && harbrelCLI --stop", "zelan-watch"),
    **{daemon: (INSTALLED, "harbrelCLI --start", daemon) for daemon in DAEMONS},
}
