# What a private host looks like to somebody who knows nothing of the programs, for comparisons of two moments; and what such
# a host is given before. Sourced by tests/faults/host and tests/rounds/host.

# Whoever kills tools sets it: what they had below /tmp then stays.
killed=''

# A machine outside, so that there is something to be bridged and to be routed to.
attach_outside() {
    ip netns add outside
    ip link add eth0 type veth peer name wire netns outside
    ip addr add 203.0.113.1/24 dev eth0
    ip link set eth0 up
    ip -n outside addr add 203.0.113.2/24 dev wire
    ip -n outside link set wire up
}

own_network=$(readlink /proc/self/ns/net)
# What the kernel numbers or draws at random is left out, and what guests leave in sets for a while. A number in a rule may
# happen to be that of an interface, by whose name it is then shown.
drawn() {
    sed -E '/ expires | ct count [0-9]/{/elements|^[[:space:]]*[0-9]/d}
            s/ (expires|handle|packets|bytes) [^ ]+//g; s/@if[0-9]+//; s/100\.127\.[0-9]+\.[0-9]+/UPLINK/g
            s/(set iif << 8 & 65349 \| ).*/\1NUMBER/'
}
rules() { nft list ruleset 2>/dev/null | drawn | md5sum | cut -c1-8; }
addresses() { ip -o -4 addr | awk '{print $2, $4}' | drawn | sort | tr '\n' ' '; }
links() {
    ip -o -d link | sed -E 's/^[0-9]+: ([^:@]*)[^:]*: <([^>]*)>(.*)/\1 \2 \3/' |
        awk '{line = $1 " " $2; for (i = 3; i < NF; i++) if ($i ~ /^(master|group|promiscuity)$/) line = line " " $i "=" $(i + 1)
              print "link " line}' | sort
}
processes() {
    local status
    for status in /proc/[0-9]*/status; do
        awk '$1 == "Name:" && $2 !~ /^(zelan-|dhcpd|dnsmasq)/ {exit} $1 == "Name:" {name = $2} $1 == "State:" && $2 == "Z" {exit}
             $1 ~ /^(Uid|CapEff|NoNewPrivs|Seccomp):/ {line = line " " $1 $2} $1 == "Cpus_allowed:" {print "process " name line}' \
            "$status" 2>/dev/null
    done | sort
}
# What runs in namespaces of its own: DHCP servers, and routers, which their daemons hold open.
inside() { # PID file, namespace
    echo "inside ${1##*/} $(nsenter --net="$2" bash -c "$(declare -f drawn rules addresses); addresses; rules" | tr '\n' ' ')"
}
services() {
    local file process held
    for file in /run/*.pid; do
        process=$(cat "$file" 2>/dev/null) || continue
        for held in /proc/"$process"/ns/net /proc/"$process"/fd/*; do
            case $(readlink "$held") in "$own_network") ;; net:*) inside "$file" "$held" ;; esac
        done
    done
}
state() {
    links
    processes
    services
    echo "addresses $(addresses)"
    echo "rules $(rules)"
    echo "forwarding $(cat /proc/sys/net/ipv4/ip_forward /proc/sys/net/ipv4/conf/eth0/forwarding | tr '\n' ' ')"
    echo "filters $(for side in ingress egress; do tc filter show dev eth0 $side; done | sed -E 's/ (id|tag|jited) ?[^ ]*//g' | md5sum | cut -c1-8)"
    echo "pid files $(cd /run && ls -- *.pid 2>/dev/null | sort | tr '\n' ' ')"
    echo "claims $(ls -A /run/zelan 2>/dev/null | grep -vE '^(.*\.lock|host-table|nat)$' | sort | tr '\n' ' ')"
    echo "files $(cd /etc/orvane && find . -not -name '*.bak*' -not -name '*leases*' -not -name '.networking.??????' | sort | tr '\n' ' ')"
    echo "temporary $([ -n "$killed" ] || ls -A /tmp | grep orvane | tr '\n' ' ')" # a kill leaves them
}
