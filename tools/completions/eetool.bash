# Completion of eetool for bash. Subcommands, options, registers and stages are what eetool says.

_eetool_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$cur"; compgen -d -- "$cur")
}

_eetool() {
    local cur prev subcommand before pipeline word i
    # The line up to the cursor in words; readline's own break at = and :.
    read -r -a before <<<"${COMP_LINE:0:COMP_POINT}"
    cur=${before[-1]} prev=
    [[ ${COMP_LINE:COMP_POINT-1:1} == [[:space:]] ]] && cur= && before+=("")
    ((${#before[@]} > 1)) && prev=${before[-2]}
    subcommand= pipeline=pre_ee
    for ((i = 1; i < ${#before[@]} - 1; ++i)); do
        word=${before[i]}
        [[ -z $subcommand && $word != -* ]] && subcommand=$word
        [[ $word == --pipeline ]] && pipeline=${before[i + 1]}
    done

    local words=
    if [[ -z $subcommand ]]; then
        words="$("$1" --help 2>/dev/null | sed -n '/^Subcommands:/,$s/^  \([a-z]\+\) .*/\1/p') --help --version"
    else
        local help
        help=$("$1" "$subcommand" --help 2>/dev/null)
        case $prev in
            --set)
                compopt -o nospace
                words=$("$1" list registers 2>/dev/null | sed 's/\t.*/=/')
                # What follows a = of the word is all that readline puts in.
                [[ $cur == *=* ]] && words=
                ;;
            --stage) words=$("$1" list stages --pipeline "$pipeline" 2>/dev/null | cut -f 1) ;;
            --pipeline) words=$("$1" list pipelines 2>/dev/null) ;;
            --format) words="npy raw hex pgm" ;;
            --log-level) words="0 1 2 3 4 5" ;;
            --*)
                case $(sed -n "s/^ *$prev \([A-Z]*\).*/\1/p" <<<"$help") in
                    "") words=$(sed -n 's/^ \+\(-.,\)\?\(--[a-z0-9-]\+\).*/\2/p' <<<"$help") ;;
                    FILE | DIR | A) _eetool_files ;;
                esac
                [[ -n $words && $cur != -* ]] && words= && _eetool_files
                ;;
            *)
                if [[ $cur == -* ]]; then
                    words=$(sed -n 's/^ \+\(-.,\)\?\(--[a-z0-9-]\+\).*/\2/p' <<<"$help")
                else
                    case $subcommand in
                        pattern) words="checkerboard star noise scene" ;;
                        list) words="registers stages pipelines" ;;
                        sweep)
                            compopt -o nospace
                            words=$("$1" list registers 2>/dev/null | sed 's/\t.*/=/')
                            ;;
                        *) _eetool_files ;;
                    esac
                fi
                ;;
        esac
    fi
    [[ -n $words ]] && mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -F _eetool eetool
