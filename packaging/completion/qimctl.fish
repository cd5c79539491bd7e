# Completion of qimctl for fish; what may follow is in qimctl/words beside the folders of the shells.

set -g __qimctl_words (status dirname)/../../qimctl/words

function __qimctl_candidates
    set -l before (commandline -opc)
    set -l current (commandline -ct)
    for line in (sh $__qimctl_words $before[2..-1] "$current")
        switch $line
            case :files
                __fish_complete_path "$current"
            case :folders
                __fish_complete_directories "$current"
            case '*'
                echo $line
        end
    end
end

complete -c qimctl -f -a '(__qimctl_candidates)'
