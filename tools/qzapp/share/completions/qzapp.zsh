#compdef qzapp
# zsh completion for qzapp: verbs, options, fields and other values from its own help, otherwise files.

_qzapp_described() {  # prints "name:what it does" for each line of a section of the help
    qzapp "${@:2}" --help 2>/dev/null |
        sed -nE "/^$1:/,/^\$/s/^  (-[A-Za-z0-9],)?([a-z-]+)( [A-Z][^ ]*)?( \.\.\.)?( \(required\))? +(.*)/\2:\6/p"
}

_qzapp_fields() {  # [Text or List, otherwise both]
    qzapp edit --help 2>/dev/null | sed -nE "/^(${1:-Text|List}) fields: /{s///;s/[,.]//g;p}"
}

_qzapp_values() {  # VERB OPTION
    qzapp $1 --help 2>/dev/null | sed -nE "s/^  --$2 .*: //;T;s/,|\<fields\>//g;p"
}

_qzapp() {
    local -a choices
    case ${words[CURRENT-1]} in
        --field | --clear) compadd -- $(_qzapp_fields); return ;;
        --set) compadd -S = -- $(_qzapp_fields); return ;;
        --add | --remove) compadd -S = -- $(_qzapp_fields List); return ;;
        --only) _values -s , kind $(_qzapp_values extract only); return ;;
        --columns) _values -s , column $(_qzapp_fields) $(_qzapp_values info columns); return ;;
        --format) compadd -- $(_qzapp_values check format); return ;;
    esac
    if ((CURRENT == 2)) && [[ $PREFIX != -* ]] || [[ ${words[2]} == help ]]; then
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
