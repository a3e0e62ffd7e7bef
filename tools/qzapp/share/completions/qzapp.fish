# fish completion for qzapp: verbs and options from its own help, otherwise files.

function __qzapp_described
    qzapp $argv --help 2>/dev/null |
        string replace -rf '^  (?:-h,)?([a-z-]+)(?: [A-Z]\S*)?(?: \.\.\.)?(?: \(required\))? +(.*)' '$1\t$2'
end

function __qzapp_verbs
    __qzapp_described | string match -rv '^-'
end

function __qzapp_options
    __qzapp_described (commandline -opc)[2] | string match -r '^-.*'
end

complete -c qzapp -n __fish_use_subcommand -f -a '(__qzapp_verbs)'
complete -c qzapp -n 'string match -q -- "-*" (commandline -ct)' -f -a '(__qzapp_options)'
