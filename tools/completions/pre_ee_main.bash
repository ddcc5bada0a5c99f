# Completion of pre_ee_main for bash: its words have an order.

_pre_ee_main() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    case $COMP_CWORD in
        3) mapfile -t COMPREPLY < <(compgen -W "0 1 2 3 4 5" -- "$cur") ;;
        4) mapfile -t COMPREPLY < <(compgen -W "NULL 0" -- "$cur") ;;
        5 | 7) mapfile -t COMPREPLY < <(compgen -W "0 1" -- "$cur") ;;
        *) ((COMP_CWORD < 15)) && { compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$cur"); } ;;
    esac
}

complete -F _pre_ee_main pre_ee_main
