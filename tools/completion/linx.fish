# fish completion for linx(1): asks the program itself, which knows its verbs and who is in the domain.

function __linx_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l unquoted (string unescape -- "$current")
    and set current "$unquoted"
    set -l answer ($words[1] __complete $words[2..-1] "$current" 2>/dev/null)
    if test "$answer[1]" = files
        __fish_complete_path "$current"
    else
        printf '%s\n' $answer[2..-1]
    end
end
complete -c linx -f -a '(__linx_complete)'
