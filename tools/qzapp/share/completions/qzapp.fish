# fish completion for qzapp: verbs, options, fields and other values from its own help, otherwise files.

function __qzapp_described
    qzapp $argv --help 2>/dev/null |
        string replace -rf '^  (?:-[A-Za-z0-9],)?([a-z-]+)(?: [A-Z]\S*)?(?: \.\.\.)?(?: \(required\))? +(.*)' '$1\t$2'
end

function __qzapp_verbs
    __qzapp_described | string match -rv '^-'
end

function __qzapp_options
    __qzapp_described (commandline -opc)[2] | string match -r '^-.*'
end

function __qzapp_fields -a kinds  # Text or List, otherwise both
    test -n "$kinds"; or set kinds 'Text|List'
    qzapp edit --help 2>/dev/null | sed -nE "/^($kinds) fields: /{s///;s/[,.]//g;p}" | string split -n ' '
end

function __qzapp_values -a verb option
    qzapp $verb --help 2>/dev/null | sed -nE "s/^  --$option .*: //;T;s/,|\<fields\>//g;p" | string split -n ' '
end

function __qzapp_kinds
    __qzapp_values extract only
end

function __qzapp_columns
    __qzapp_fields
    __qzapp_values info columns
end

complete -c qzapp -n __fish_use_subcommand -f -a '(__qzapp_verbs)'
complete -c qzapp -n '__fish_seen_subcommand_from help' -f -a '(__qzapp_verbs)'
complete -c qzapp -n 'string match -q -- "-*" (commandline -ct)' -f -a '(__qzapp_options)'
complete -c qzapp -n '__fish_seen_subcommand_from info' -l field -x -a '(__qzapp_fields)'
complete -c qzapp -n '__fish_seen_subcommand_from edit' -l clear -x -a '(__qzapp_fields)'
complete -c qzapp -n '__fish_seen_subcommand_from create edit' -l set -x -a '(__qzapp_fields | string replace -r "\$" "=")'
complete -c qzapp -n '__fish_seen_subcommand_from edit' -l add -x -a '(__qzapp_fields List | string replace -r "\$" "=")'
complete -c qzapp -n '__fish_seen_subcommand_from edit' -l remove -x -a '(__qzapp_fields List | string replace -r "\$" "=")'
complete -c qzapp -n '__fish_seen_subcommand_from extract' -l only -x -a '(__fish_complete_list , __qzapp_kinds)'
complete -c qzapp -n '__fish_seen_subcommand_from info' -l columns -x -a '(__fish_complete_list , __qzapp_columns)'
complete -c qzapp -n '__fish_seen_subcommand_from check' -l format -x -a '(__qzapp_values check format)'
