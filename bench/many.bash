# Full networks (DHCP, NAT and host interface each) in numbers, beside the least that has to be done for them. A part
# of bench/run.

MANY=250

# install_full_networks COUNT: configured, with their files made, and nothing running.
install_full_networks() {
    install_networks 1 "$1"
    for ((n = 1; n <= $1; n++)); do
        echo "answer VNET_${n}_DHCP yes"
        echo "answer VNET_${n}_NAT yes"
    done >>/etc/orvane/networking
    "$bin/harbrelCLI" --postinstall bench,1.0,2.0 >/dev/null 2>&1
}

# The floor: bridges and addresses in one batch, a table with masquerading each, one DHCP server after the other.
FLOOR_GROUP=77
make_floor() {
    batch_of_links 1 "$1" | sed "/type bridge/s/\$/ \\nlink set dev X group $FLOOR_GROUP/" |
        awk '/type bridge/ { name = $4 } { sub(/dev X/, "dev " name); print }' >/tmp/floor.links
    for ((n = 1; n <= $1; n++)); do
        echo "table ip floor$n { chain out { type nat hook postrouting priority srcnat; ip saddr 172.16.$n.0/24 masquerade; }; }"
    done >/tmp/floor.rules
    cat >/tmp/floor <<EOF
ip -batch /tmp/floor.links && nft -f /tmp/floor.rules
for n in \$(seq $1); do
    dnsmasq --conf-file=/dev/null --port=0 --interface=host\$n --bind-interfaces --no-ping --pid-file=/tmp/floor.pid.\$n \
        --dhcp-leasefile=/tmp/floor.leases.\$n --dhcp-range=172.16.\$n.129,172.16.\$n.253
done
EOF
}
floor_once() {
    make_floor $MANY
    local start
    start=$(measured sh /tmp/floor)
    killall dnsmasq
    for ((n = 1; n <= MANY; n++)); do echo "link delete dev host$n"; done >/tmp/floor.ends
    ip -batch /tmp/floor.ends
    echo "$start $(measured ip link delete group $FLOOR_GROUP)"
}

available() { awk '/^MemAvailable/ { print $2 }' /proc/meminfo; }
# What all programs of the networks occupy, each page divided by those who share it, in KiB.
proportional_size() {
    for process in $(pgrep 'zelan-|dnsmasq|dhcpd'); do cat "/proc/$process/smaps_rollup"; done 2>/dev/null |
        awk '/^Pss:/ { sum += $2 } END { print sum }'
}
anything_left() { ls -d /sys/class/net/zelan* || pgrep 'zelan-|dnsmasq|dhcpd'; }

# start stop cleaned-up size memory status plain-status
many_once() {
    install_full_networks "$1"
    local before start memory size status plain stop begin
    before=$(available)
    start=$(measured "$bin/harbrelCLI" --start)
    memory=$((before - $(available)))
    size=$(proportional_size)
    status=$(for ((n = 0; n < 10; n++)); do measured "$bin/harbrelCLI" --status; done | median)
    plain=$(for ((n = 0; n < 10; n++)); do measured "$bin/bench-plain-status"; done | median)
    stop=$(measured "$bin/harbrelCLI" --stop)
    begin=$(now)
    while anything_left >/dev/null 2>&1; do sleep 0.05; done
    echo "$start $stop $(since "$begin") $size $memory $status $plain"
}

# The time until zelan-natd has reported, as the second one, since the first starts zelan-watch as well, and as the last of many.
natd_start() {
    measured "$bin/zelan-natd" -s 9 -d "/run/zelan-natd-$1.pid" -m "/run/zelan-natd-$1.mac" \
        -c "/etc/orvane/zelan$1/nat/nat.conf" 9>/dev/null
}
natd_once() {
    install_full_networks $MANY
    local second
    natd_start 1 >/dev/null
    second=$(natd_start 2)
    for ((n = 3; n < MANY; n++)); do natd_start $n >/dev/null; done
    echo "$second $(natd_start $MANY)"
}

# Throughput of network 1 alone and among many.
many_nat_once() {
    wire 1
    ip address add 10.9.1.3/24 dev eth1
    install_full_networks "$1"
    "$bin/harbrelCLI" --start >/dev/null 2>&1
    connect_guest zelan-sw1 guest1 172.16.1.3/24
    ip -n guest1 route add default via 172.16.1.2
    for ((n = 0; n < 3; n++)); do throughput guest1 outside1 10.9.1.1; done
}

many() {
    local full="" hundred="" floors="" alone="" among=""
    for ((turn = 0; turn < runs; turn++)); do
        full+=$(on_private_host many_once $MANY)$'\n'
        floors+=$(on_private_host floor_once)$'\n'
        hundred+=$(on_private_host many_once 100)$'\n'
        alone+=$(on_private_host many_nat_once 1)$'\n'
        among+=$(on_private_host many_nat_once $MANY)$'\n'
    done
    of() { printf '%s' "$1" | column "$2"; }
    show "--start of $MANY full networks (s)" "$(of "$full" 1)" "the least for them" "$(of "$floors" 1)" "<= 2.0"
    show "--start of $MANY full networks (s)" "$(of "$full" 1)" "of 100" "$(of "$hundred" 1)" "<= 2.8"
    show "--stop of $MANY full networks (s)" "$(of "$full" 2)" "ip link delete group" "$(of "$floors" 2)" "<= 0.4"
    tell "clean-up behind it (s)" "$(of "$full" 3)" "<= 10"
    tell "proportional set size of all (KiB)" "$(of "$full" 4)" "<= 307200"
    tell "memory that they take from the host (KiB)" "$(of "$full" 5)" "<= 409600"
    show "--status, all running (s)" "$(of "$full" 6)" "C loop, same system calls" "$(of "$full" 7)" "<= 3"
    show "NAT throughput among $MANY networks (Mbit/s)" "$(of "$among" 1)" "of one" "$(of "$alone" 1)" ">= 0.95"
    local starts
    starts=$(repeated natd_once)
    show "zelan-natd's start as the last of $MANY (s)" "$(column 2 <<<"$starts")" "as the second" "$(column 1 <<<"$starts")" "<= 1.3"
}
