# bash completion for harbrelCLI
_harbrelCLI() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word
    # The equals sign is a word of its own.
    if [[ $current == = ]]; then
        previous+='='
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}=
    fi
    case $previous in
        --migrate-network-settings | --migrate-network-settings=)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --postinstall | *=)
            return
            ;;
    esac
    local options="--postinstall --migrate-network-settings --install-host-policy --uninstall-host-policy
        --start --stop --status --version --help --verbose"
    # One command a run.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            --verbose | -v) ;;
            --*) options=--verbose ;;
        esac
    done
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
}
complete -o filenames -F _harbrelCLI harbrelCLI
