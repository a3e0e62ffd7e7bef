# Makes a man page of a program's help. Called by scripts/lib/man-pages, which sets
#   name      of the page, such as qzapp-edit
#   source    version line of the program
#   date      of the page
#   related   names of other pages, separated by blanks
# The first file is the help of the page's command, the second that of the whole program: the page takes
# exit statuses and environment from there if its command does not say anything else.
#
# A help consists of a description, a line "Usage: ...", sections and paragraphs. A section begins with a
# line such as "Options:" and ends before a blank line; its rows are indented by two blanks, with at least
# two blanks between a label and what it means, which goes on in lines that are indented further. The lines
# of the sections "Example" and "Examples", and indented lines after a paragraph, are kept as they are.

function escaped(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    gsub(/'/, "\\(aq", text)
    gsub(/`/, "\\(ga", text)
    gsub(/\^/, "\\(ha", text)
    gsub(/~/, "\\(ti", text)
    if (text ~ /^\./) text = "\\&" text
    return text
}

# "-o,--output DIR (required)" with what is typed in bold and what stands for something in italics.
function label_of(text,    words, count, i, word, result) {
    sub(/,--/, ", --", text)
    count = split(text, words, " ")
    for (i = 1; i <= count; i++) {
        word = escaped(words[i])
        if (words[i] ~ /^\[?[A-Z]/ && !names_are_typed) word = "\\fI" word "\\fR"
        else if (words[i] !~ /^[(.]/) word = "\\fB" word "\\fR"
        result = result (i > 1 ? " " : "") word
    }
    return result
}

function joined(text, more) { return text == "" || more == "" ? text more : text " " more }

function trimmed(text) {
    sub(/^ +/, "", text)
    return text
}

# "Exit status: 0 done, 1 failed." as a list; returns the paragraph without it.
function without_exit_statuses(text,    at, list, rest) {
    at = match(text, /Exit status: [^.]*\./)
    if (!at) return text
    list = substr(text, RSTART + 13, RLENGTH - 14)
    rest = substr(text, RSTART + RLENGTH + 1)
    text = substr(text, 1, at - 1)
    if (file == 1 || statuses == "") {
        statuses = ""
        while (match(list, /^[0-9]+ /)) {
            at = RLENGTH
            statuses = statuses ".TP\n\\fB" substr(list, 1, at - 1) "\\fR\n"
            list = substr(list, at + 1)
            at = match(list, /, [0-9]+ /) ? RSTART : length(list) + 1
            statuses = statuses escaped(substr(list, 1, at - 1)) "\n"
            list = substr(list, at + 2)
        }
    }
    sub(/ $/, "", text)
    return joined(text, rest)
}

function end_paragraph(    text) {
    text = without_exit_statuses(paragraph)
    paragraph = ""
    if (text != "" && file == 1) about = about ".PP\n" escaped(text) "\n"
}

function end_literal() {
    if (literal != "" && file == 1) about = about ".PP\n.RS 4\n.nf\n" literal ".fi\n.RE\n"
    literal = ""
}

function end_section(    i, text, has_meanings) {
    if (section == "") return
    for (i = 1; i <= rows; i++) has_meanings = has_meanings || meaning[i] != ""
    names_are_typed = section == "Environment"
    for (i = 1; i <= rows; i++) {
        if (has_meanings) text = text ".TP\n" label_of(label[i]) "\n" escaped(meaning[i]) "\n"
        else text = joined(text, escaped(label[i]))
    }
    if (section == "Environment") environment = text
    else if (file == 1 && has_meanings) lists = lists ".SH " toupper(section) "\n" text
    else if (file == 1 && section !~ /^Examples?$/) about = about ".TP\n" section ":\n" text "\n"
    section = ""
    rows = 0
}

function end_all() {
    end_paragraph()
    end_literal()
    end_section()
}

FNR == 1 { file++; seen_usage = 0 }

/^ *$/ { end_all(); next }

!seen_usage && /^Usage: / {
    seen_usage = 1
    if (file == 1) usage = substr($0, 8)
    next
}

!seen_usage {
    if (file == 1) description = joined(description, $0)
    next
}

/^[A-Z][A-Za-z ]*:$/ {
    end_all()
    section = substr($0, 1, length($0) - 1)
    next
}

/^ / && section ~ /^Examples?$/ {
    if (file == 1) examples = examples escaped(substr($0, 3)) "\n"
    next
}

/^  [^ ]/ && section != "" {
    rows++
    label[rows] = substr($0, 3)
    meaning[rows] = ""
    if (match(label[rows], /   */)) {
        meaning[rows] = trimmed(substr(label[rows], RSTART))
        label[rows] = substr(label[rows], 1, RSTART - 1)
    }
    next
}

/^ / && section != "" {
    meaning[rows] = joined(meaning[rows], trimmed($0))
    next
}

/^ / {
    end_paragraph()
    literal = literal escaped(substr($0, 3)) "\n"
    next
}

{
    end_literal()
    end_section()
    paragraph = joined(paragraph, $0)
}

END {
    end_all()
    if (description == "" || usage == "" || statuses == "") {
        print name ": the help does not say what it is, how it is used or how it ends" >"/dev/stderr"
        exit 1
    }
    sub(/\.$/, "", description)
    printf ".TH %s 1 %s \"%s\" \"User Commands\"\n", escaped(toupper(name)), date, source
    # Words are not broken: many are names.
    print ".nh\n.ad l"
    printf ".SH NAME\n%s \\- %s\n", escaped(name), escaped(tolower(substr(description, 1, 1)) substr(description, 2))
    print ".SH SYNOPSIS\n" label_of(usage)
    printf ".SH DESCRIPTION\n%s.\n%s", escaped(description), about
    printf "%s", lists
    printf ".SH EXIT STATUS\n%s", statuses
    printf ".SH ENVIRONMENT\n%s", environment == "" ? "It reads no variables of its own.\n" : environment
    if (examples != "") printf ".SH EXAMPLES\n.nf\n%s.fi\n", examples
    count = split(related, pages, " ")
    print ".SH SEE ALSO"
    for (i = 1; i <= count; i++) printf ".BR %s (1)%s\n", escaped(pages[i]), i < count ? "," : ""
}
