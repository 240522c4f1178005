# fish completion of quorvane-mdm

complete -c quorvane-mdm -f
complete -c quorvane-mdm -s h -l help -d 'Print this help'
complete -c quorvane-mdm -l version -d 'Print the version'
complete -c quorvane-mdm -l managed-configuration -r -F -d 'Policy file to follow'
complete -c quorvane-mdm -l push -x -a 'auto local off' -d 'Where pushes come from'
complete -c quorvane-mdm -l log-stderr -d 'Log to standard error instead of the journal'
complete -c quorvane-mdm -l background -l dbus-activated -d 'Start without a window, as at login or for a push'
