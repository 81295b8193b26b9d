# Completion of zbase for bash. It asks the command itself, so that it never tells less than the command takes.
_zbase() {
    local word=${COMP_WORDS[COMP_CWORD]} before=() i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in -*) ;; *) [ "${#before[@]}" -lt 2 ] && before+=("${COMP_WORDS[i]}") ;; esac
    done
    [ "${before[0]:-}" = crash ] || before=("${before[@]:0:1}")
    local help
    help=$(zbase "${before[@]}" --help 2>/dev/null)
    case $word in
        -*) mapfile -t COMPREPLY < <(compgen -W "$(grep -o -E -- '(^|[ ,])--?[a-z][a-z-]*' <<<"$help" | tr -d ' ,')" -- "$word") ;;
        *)
            local commands
            commands=$(sed -n '/^[Ss][Uu][Bb][Cc][Oo][Mm]/,$s/^  *\([a-z]*\) .*/\1/p' <<<"$help")
            if [ -n "$commands" ]; then
                mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
            else
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
            fi
            ;;
    esac
}
complete -o filenames -F _zbase zbase
