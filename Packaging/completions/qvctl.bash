# bash completion of qvctl, which prints the candidates itself

_qvctl() {
    local current=${COMP_WORDS[COMP_CWORD]#=} lines
    mapfile -t lines < <(qvctl --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    if [[ ${lines[0]} == :files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "${lines[*]%%$'\t'*}" -- "$current")
    fi
}
complete -F _qvctl qvctl
