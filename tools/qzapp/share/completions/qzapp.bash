# bash completion for qzapp: verbs, options, fields and kinds from its own help, otherwise files.

_qzapp_verbs() {
    qzapp --help 2>/dev/null | sed -n '/^Verbs:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

_qzapp_fields() {
    qzapp edit --help 2>/dev/null | sed -nE '/^(Text|List) fields: /{s///;s/[,.]//g;p}'
}

_qzapp_lists() {
    qzapp edit --help 2>/dev/null | sed -n '/^List fields:/,/^$/{/:$/d;s/,//g;p}'
}

_qzapp_kinds() {
    qzapp extract --help 2>/dev/null | sed -n 's/.*What to write: //;T;s/,//g;p'
}

_qzapp() {
    local cur prev words cword split
    _init_completion -s || return
    local verb=
    ((cword > 1)) && verb=${words[1]}
    case $prev in
        --field | --clear) COMPREPLY=($(compgen -W '$(_qzapp_fields)' -- "$cur")); return ;;
        --set)
            COMPREPLY=($(compgen -S = -W '$(_qzapp_fields)' -- "$cur"))
            compopt -o nospace 2>/dev/null
            return
            ;;
        --add | --remove)
            COMPREPLY=($(compgen -S = -W '$(_qzapp_lists)' -- "$cur"))
            compopt -o nospace 2>/dev/null
            return
            ;;
        --only) COMPREPLY=($(compgen -W '$(_qzapp_kinds)' -- "$cur")); return ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '$(_parse_help "$1" "$verb --help")' -- "$cur"))
    elif [[ -z $verb || $verb == help ]]; then
        COMPREPLY=($(compgen -W '$(_qzapp_verbs)' -- "$cur"))
    else
        _filedir
    fi
}
complete -F _qzapp qzapp
