# bash completion for qzapp: verbs, options, fields and other values from its own help, otherwise files.

_qzapp_verbs() {
    qzapp --help 2>/dev/null | sed -n '/^Verbs:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

_qzapp_fields() {  # [Text or List, otherwise both]
    qzapp edit --help 2>/dev/null | sed -nE "/^(${1:-Text|List}) fields: /{s///;s/[,.]//g;p}"
}

_qzapp_values() {  # VERB OPTION
    qzapp "$1" --help 2>/dev/null | sed -nE "s/^  --$2 .*: //;T;s/,|\<fields\>//g;p"
}

_qzapp_complete_list() {  # WORDS, of which several may be given with commas between them
    local before=
    [[ $cur == *,* ]] && before=${cur%,*},
    COMPREPLY=($(compgen -P "$before" -W "$1" -- "${cur##*,}"))
    compopt -o nospace 2>/dev/null
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
            COMPREPLY=($(compgen -S = -W '$(_qzapp_fields List)' -- "$cur"))
            compopt -o nospace 2>/dev/null
            return
            ;;
        --only) _qzapp_complete_list "$(_qzapp_values extract only)"; return ;;
        --columns) _qzapp_complete_list "$(_qzapp_fields) $(_qzapp_values info columns)"; return ;;
        --format) COMPREPLY=($(compgen -W '$(_qzapp_values check format)' -- "$cur")); return ;;
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
