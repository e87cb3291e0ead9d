# bash completion for harbrelctl
_harbrelctl_networks() { harbrelctl --no-legend list 2>/dev/null | awk '{ print $1 }'; }
_harbrelctl_adapters() { harbrelctl --no-legend adapter list 2>/dev/null | awk '{ print $1 }'; }
_harbrelctl() {
    local current=${COMP_WORDS[COMP_CWORD]} word words=() candidates=
    local keys="subnet dhcp nat adapter adapter-address adapter-name range lease-time max-lease-time dns domain routers
        gateway active-ftp udp-timeout"
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || words+=("$word")
    done
    case "${words[*]}" in
        "") candidates="list show add remove set unset forward reserve adapter lease guest start stop restart apply edit
            export import doctor watch graph" ;;
        forward | reserve) candidates="list add remove" ;;
        adapter) candidates="list move default" ;;
        lease | guest) candidates=list ;;
        "adapter move") candidates=$(_harbrelctl_adapters) ;;
        "adapter move "*) candidates="$(_harbrelctl_networks) default none" ;;
        "adapter default") candidates="on off" ;;
        "forward add "* | "forward remove "*)
            [[ ${#words[@]} -eq 3 ]] && candidates="tcp udp" ;;
        "set "*) candidates=$(printf '%s= ' $keys); compopt -o nospace ;;
        "unset "*) candidates=$keys ;;
        export | import | graph)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        *) candidates=$(_harbrelctl_networks) ;;
    esac
    if [[ $current == -* ]]; then
        candidates="--json --no-legend --dry-run --no-apply --verbose --yes --help --version"
        case "${words[0]}" in
            add) candidates+=" --nat --host-only --bridge --subnet --no-dhcp" ;;
            forward) candidates+=" --note" ;;
            apply) candidates+=" --plan" ;;
            doctor) candidates+=" --deep" ;;
        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$candidates" -- "$current")
}
complete -F _harbrelctl harbrelctl
