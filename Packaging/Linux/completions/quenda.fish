# Completions of quenda for fish.

complete -c quenda -f

complete -c quenda -n __fish_use_subcommand -a start -d 'Begin to dictate'
complete -c quenda -n __fish_use_subcommand -a stop -d 'Finish, recognise and paste'
complete -c quenda -n __fish_use_subcommand -a toggle -d 'Begin to dictate, or finish'
complete -c quenda -n __fish_use_subcommand -a cancel -d 'Throw the recording away'
complete -c quenda -n __fish_use_subcommand -a retry -d 'Send the last failed dictation again'
complete -c quenda -n __fish_use_subcommand -a status -d 'Print what the program is doing'
complete -c quenda -n __fish_use_subcommand -a history -d 'List or copy the last dictations'
complete -c quenda -n __fish_use_subcommand -a settings -d 'Open the settings window'
complete -c quenda -n __fish_use_subcommand -a welcome -d 'Open the window with the first steps'
complete -c quenda -n __fish_use_subcommand -a about -d 'Open the window about the program'
complete -c quenda -n __fish_use_subcommand -a quit -d 'End the running program'
complete -c quenda -n __fish_use_subcommand -s h -l help -d 'Print a summary of the commands'
complete -c quenda -n __fish_use_subcommand -s v -l version -d 'Print the version'

complete -c quenda -n '__fish_seen_subcommand_from status' -l json -d 'As one JSON object'
complete -c quenda -n '__fish_seen_subcommand_from history' -l copy -x -a '(seq 10)' \
    -d 'Put one on the clipboard'
