# fish completion for harbrelctl
function __harbrelctl_networks
    harbrelctl --no-legend list 2>/dev/null | string replace -r ' .*' ''
end
function __harbrelctl_adapters
    harbrelctl --no-legend adapter list 2>/dev/null | string replace -r ' .*' ''
end
set -l commands list show add remove set unset forward reserve adapter lease guest start stop restart apply edit export import doctor watch graph
set -l keys subnet dhcp nat adapter adapter-address adapter-name range lease-time max-lease-time dns domain routers gateway active-ftp udp-timeout
complete -c harbrelctl -f
complete -c harbrelctl -n "not __fish_seen_subcommand_from $commands" -a "$commands"
complete -c harbrelctl -n "__fish_seen_subcommand_from forward reserve" -a "list add remove"
complete -c harbrelctl -n "__fish_seen_subcommand_from lease guest" -a list
complete -c harbrelctl -n "__fish_seen_subcommand_from adapter; and not __fish_seen_subcommand_from set unset" -a "list move default none (__harbrelctl_adapters)"
complete -c harbrelctl -n "__fish_seen_subcommand_from $commands" -a "(__harbrelctl_networks)"
complete -c harbrelctl -n "__fish_seen_subcommand_from set" -a "$keys="
complete -c harbrelctl -n "__fish_seen_subcommand_from unset" -a "$keys"
complete -c harbrelctl -n "__fish_seen_subcommand_from import export graph" -F
complete -c harbrelctl -s j -l json -d "one JSON document"
complete -c harbrelctl -l no-legend -d "no headline"
complete -c harbrelctl -s n -l dry-run -d "show what would change"
complete -c harbrelctl -l no-apply -d "write the settings alone"
complete -c harbrelctl -s v -l verbose -d "tell each step"
complete -c harbrelctl -s y -l yes -d "do not ask"
for option in nat host-only no-dhcp
    complete -c harbrelctl -n "__fish_seen_subcommand_from add" -l $option
end
complete -c harbrelctl -n "__fish_seen_subcommand_from add" -l bridge -xa "(__harbrelctl_adapters)"
complete -c harbrelctl -n "__fish_seen_subcommand_from doctor" -l deep -d "send real packets"
complete -c harbrelctl -n "__fish_seen_subcommand_from apply" -l plan -r -F
