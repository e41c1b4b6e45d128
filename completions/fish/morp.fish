# fish completion for morp: its option, a command, then the command's own completion.

function __morp_before_command
    set -l words (commandline -opc)
    set -e words[1]
    while set -q words[1]
        switch $words[1]
            case --
                return 1
            case -m
                set -e words[1]
            case '-*'
            case '*'
                return 1
        end
        set -e words[1]
    end
end

complete -c morp -x -a '(__fish_complete_subcommand -m)' -d Command
complete -c morp -n __morp_before_command -s m -x -a "0\t'Editing off' 1\t'Editing on'" \
    -d 'Start with editing off or on'
