# fish completion for morp-history: its options, then a file.

set -l none 'not __fish_contains_opt -s c -s e -s i -s n'
complete -c morp-history -n $none -s c -d 'Check alone'
complete -c morp-history -n $none -s e -d 'Export as text'
complete -c morp-history -n $none -s i -d 'Make a new file of the text on standard input'
complete -c morp-history -n $none -s n -d 'Count the commands'
