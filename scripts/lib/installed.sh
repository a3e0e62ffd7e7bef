# Sourced by the scripts that install: functions that check what is in a prefix.

# failed MESSAGE...: ends the script.
failed() { echo "FAILED: $*" >&2; exit 1; }

# check_hardened FILE...: programs and shared libraries as linker and compiler should have made them.
check_hardened() {
    local file
    for file in "$@"; do
        local header dynamic symbols
        header=$(readelf -hlW "$file") dynamic=$(readelf -dW "$file") symbols=$(readelf --dyn-syms -W "$file")
        [[ $header =~ Type:\ +DYN ]] || failed "$file is not position-independent"
        [[ $header == *GNU_RELRO* ]] || failed "$file has tables that stay writable"
        [[ $dynamic == *BIND_NOW* ]] || failed "$file binds functions late"
        [[ $symbols == *__stack_chk_fail* ]] || failed "$file has no stack protector"
        echo "    ${file##*/}"
    done
    # Not every file calls a function that has a checked form.
    [[ $(readelf --dyn-syms -W "$@") =~ __[a-z]+_chk@ ]] || failed "no call is fortified"
}

# check_dependencies PACKAGE...: the packages that need another of these say so, in this very version.
check_dependencies() {
    local package name
    for package in "$@"; do
        name=$(dpkg-deb -f "$package" Package)
        [[ $name == libqzappserialization[0-9]* ]] && continue
        dpkg-deb -f "$package" Depends |
            grep -Eq "libqzappserialization[0-9]+ \(= $(dpkg-deb -f "$package" Version)\)" ||
            failed "$name does not depend on the libraries"
        echo "    $name"
    done
}

check_man_pages() {
    local page section
    for page in "$1"/share/man/man1/*.1.gz; do
        zcat "$page" | groff -man -Kutf8 -Tutf8 -ww -z >"$2/groff" 2>&1
        [ -s "$2/groff" ] && { cat "$2/groff"; failed "$page"; }
        for section in NAME SYNOPSIS DESCRIPTION "EXIT STATUS" ENVIRONMENT "SEE ALSO"; do
            zcat "$page" | grep -q "^\.SH $section$" || failed "$page has no section $section"
        done
    done
    "$1/bin/qzapp" --help | sed -nE '/^Verbs:/,/^$/s/^  ([a-z-]+) +.*/\1/p' | while read -r page; do
        [ -e "$1/share/man/man1/qzapp-$page.1.gz" ] || failed "qzapp $page has no man page"
    done
}

# Each shell finds the completion by itself, as it would under this prefix.
check_completions() {
    local choices
    choices=$(PATH=$1/bin:$PATH XDG_DATA_DIRS=$1/share HOME=$3 bash --norc -c '
        . /usr/share/bash-completion/bash_completion
        _completion_loader qzapp
        COMP_WORDS=(qzapp con) COMP_LINE="qzapp con" COMP_POINT=9 COMP_CWORD=1
        $(complete -p qzapp | sed "s/.*-F \([^ ]*\).*/\1/") qzapp
        echo "${COMPREPLY[@]}"' 2>&1) || true
    [ "$choices" = convert ] || failed "bash completes \"qzapp con\" with: $choices"
    choices=$(PATH=$1/bin:$PATH HOME=$3 zsh -f -c '
        fpath=('"$1/share/zsh/$2"' $fpath)
        autoload -Uz compinit && compinit -u -D
        [[ ${_comps[qzapp]-} == _qzapp ]] || { echo nothing; exit; }
        autoload +X -Uz _qzapp && functions[_qzapp]=${functions[_qzapp]%_qzapp*} && _qzapp
        _qzapp_described Verbs | grep ^convert:' 2>&1) || true
    [[ $choices == convert:Make* ]] || failed "zsh completes with: $choices"
    choices=$(PATH=$1/bin:$PATH XDG_DATA_DIRS=$1/share HOME=$3 fish -c 'complete -C "qzapp con"' 2>&1) || true
    [[ $choices == convert* ]] || failed "fish completes \"qzapp con\" with: $choices"
}

# The documents that the documents link to are there.
check_documents() {
    local links
    links=$(cd "$1" && grep -oE '\]\([^)#: ]+[)#]' -- *.md | sed 's/:](/ /; s/.$//')
    while read -r document link; do
        [ -e "$1/$(dirname "$document")/$link" ] || failed "$document links to $link, which is not installed"
    done <<<"$links"
    [ -e "$1/guide.md" ] || failed "the guide is not installed"
}

# The package is where python3 of this prefix looks, and reads what it wrote.
check_python() {
    local found
    found=$(find "$1" -name '_native.*.so')
    [[ $found == "$1"/lib/python3*/dist-packages/qzapp/* ]] || failed "the Python package is in: $found"
    (cd "$2" && PYTHONPATH=${found%/qzapp/*} PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c '
import qzapp
qzapp.create("python.kvpkg", code="", model=b"").save()
assert qzapp.open("python.kvpkg").metadata.app_type == "Standard"') || failed "the Python package"
}

# check_installed PREFIX ZSH-FOLDER WORK: all of the above, and the examples, built where they are
# installed against what is installed and run. WORK is a scratch folder.
check_installed() {
    local documents=$1/share/doc/qzappserialization
    echo "man pages, completions, documents, Python package:"
    check_man_pages "$1" "$3"
    check_completions "$1" "$2" "$3"
    check_documents "$documents"
    "$1/bin/qzhost" classes >/dev/null
    check_python "$1" "$3"
    echo "the examples:"
    { cmake -S "$documents/examples" -B "$3/examples" -G Ninja -DCMAKE_PREFIX_PATH="$1" &&
        cmake --build "$3/examples" &&
        ctest --test-dir "$3/examples" --output-on-failure; } >"$3/log" 2>&1 ||
        { cat "$3/log"; failed "the examples"; }
    tail -n 4 "$3/log" | grep 'tests passed'
}
