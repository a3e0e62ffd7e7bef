# bash completion for qzapp: verbs and options from its own help, otherwise files.

_qzapp_verbs() {
    qzapp --help 2>/dev/null | sed -n '/^Verbs:/,/^$/s/^  \([a-z]*\) .*/\1/p'
}

_qzapp() {
    local cur prev words cword split
    _init_completion -s || return
    local verb=
    ((cword > 1)) && verb=${words[1]}
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '$(_parse_help "$1" "$verb --help")' -- "$cur"))
    elif [[ -z $verb ]]; then
        COMPREPLY=($(compgen -W '$(_qzapp_verbs)' -- "$cur"))
    else
        _filedir
    fi
}
complete -F _qzapp qzapp
