# bash completion for linx(1): asks the program itself, which knows its verbs and who is in the domain.

_linx() {
    local line=${COMP_LINE:0:COMP_POINT} words answer candidate before
    # Not COMP_WORDS: those are cut at colons and the like, and names may have some. What is quoted by backslashes
    # alone is whole.
    read -a words <<<"$line"
    [[ $line =~ (^|[^\\])[[:space:]]$ ]] && words+=("")
    COMPREPLY=()
    mapfile -t answer < <("$1" __complete "${words[@]:1}" 2>/dev/null)
    if [[ ${answer[0]} == files ]]; then
        compopt -o default
        return
    fi
    # bash replaces what follows the last place where it cuts.
    before=${words[-1]}
    if [[ $before == *["${COMP_WORDBREAKS//[^:=@]/}"]* && ${COMP_WORDBREAKS//[^:=@]/} ]]; then
        before=${before%"${before##*["${COMP_WORDBREAKS//[^:=@]/}"]}"}
    else
        before=
    fi
    for candidate in "${answer[@]:1}"; do
        candidate=${candidate%%$'\t'*}
        printf -v candidate %q "${candidate#"$before"}"
        COMPREPLY+=("$candidate")
    done
}
complete -F _linx linx
