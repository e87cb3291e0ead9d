# bash completion for harbrelCLI
_harbrelCLI() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    case $previous in
        --migrate-network-settings)
            COMPREPLY=($(compgen -f -- "$current"))
            return
            ;;
        --postinstall)
            return
            ;;
    esac
    COMPREPLY=($(compgen -W "--postinstall --migrate-network-settings --install-host-policy --uninstall-host-policy
        --start --stop --status --version --help --verbose" -- "$current"))
}
complete -o filenames -F _harbrelCLI harbrelCLI
