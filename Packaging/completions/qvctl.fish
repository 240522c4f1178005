# fish completion of qvctl, which prints the candidates itself

function __qvctl_candidates
    set -l current (commandline -ct)
    set -l lines (qvctl --complete (commandline -opc)[2..-1] "$current" 2>/dev/null)
    if test "$lines" = :files
        set -l option (string match -r '^--[^=]*=' -- "$current")
        printf "$option%s\n" (__fish_complete_path (string replace -- "$option" '' "$current"))
    else
        string join \n -- $lines
    end
end
complete -c qvctl -f -a '(__qvctl_candidates)'
