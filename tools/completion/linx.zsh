#compdef linx
# zsh completion for linx(1): asks the program itself, which knows its verbs and who is in the domain.

_linx() {
    local -a answer candidates descriptions
    local line tab=$'\t'
    answer=("${(@f)$($words[1] __complete "${(@Q)words[2,CURRENT]}" 2>/dev/null)}")
    if [[ $answer[1] == files ]]; then
        _files
        return
    fi
    for line in "${(@)answer[2,-1]}"; do
        candidates+=("${line%%$tab*}")
        descriptions+=("${line//$tab/  -- }")
    done
    (( $#candidates )) && compadd -l -d descriptions -a candidates
}

# Read as a function by the completion system, or as a file by hand.
if [[ $funcstack[1] == _linx ]]; then
    _linx "$@"
else
    compdef _linx linx
fi
