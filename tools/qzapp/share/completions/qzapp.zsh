#compdef qzapp
# zsh completion for qzapp: verbs and options from its own help, otherwise files.

_qzapp_described() {  # prints "name:what it does" for each line of a section of the help
    qzapp "${@:2}" --help 2>/dev/null |
        sed -nE "/^$1:/,/^\$/s/^  (-h,)?([a-z-]+)( [A-Z][^ ]*)?( \.\.\.)?( \(required\))? +(.*)/\2:\6/p"
}

_qzapp() {
    local -a choices
    if ((CURRENT == 2)) && [[ $PREFIX != -* ]]; then
        choices=(${(f)"$(_qzapp_described Verbs)"})
        _describe verb choices
    elif [[ $PREFIX == -* ]]; then
        choices=(${(f)"$(_qzapp_described '[A-Z][a-z]+' ${words[2,CURRENT-1][1]})"})
        _describe -o option choices
    else
        _files
    fi
}
_qzapp "$@"
