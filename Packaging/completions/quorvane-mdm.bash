# bash completion of quorvane-mdm

_quorvane_mdm() {
    local current=${COMP_WORDS[COMP_CWORD]#=} previous=${COMP_WORDS[COMP_CWORD - 1]} words
    # "--option=value" is three words.
    [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    case $previous in
        --managed-configuration)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return ;;
        --push) words='auto local off' ;;
        *) words='-h --help --version --managed-configuration --push --log-stderr --background --dbus-activated' ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _quorvane_mdm quorvane-mdm
