#compdef qzapp
# zsh completion for qzapp: verbs and options as its own help names them, otherwise files.

_qzapp_described() {  # of a section of the help, "name:what it does" line by line
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
