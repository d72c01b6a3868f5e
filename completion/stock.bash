# Completion of stock in bash. The tool itself tells what may come next.

_stock()
{
    local word=${COMP_WORDS[COMP_CWORD]} line
    COMPREPLY=()
    while IFS= read -r line; do
        case $line in
        $'\tfiles') _stock_add -f -o filenames ;;
        $'\tdirectories') _stock_add -d -o filenames ;;
        $'\tvariables') _stock_add -v ;;
        $'\tcommands') _stock_add -c ;;
        *) COMPREPLY+=("${line%%$'\t'*}") ;;
        esac
    done < <("${1/#\~\//$HOME/}" complete "${COMP_WORDS[@]:0:COMP_CWORD}" "$2" 2>/dev/null)
}

# _stock_add KIND [OPTION...]: adds what bash finds of a kind, with what readline is to know
_stock_add()
{
    # A word with a quote in it is left to readline, which knows what it means.
    case $word in
    *[\"\'\\]*) compopt -o default 2>/dev/null; return ;;
    esac
    [ $# -eq 1 ] || compopt "${@:2}" 2>/dev/null  # there is none outside of a completion
    local found
    while IFS= read -r found; do
        COMPREPLY+=("$found")
    done < <(compgen "$1" -- "$word")
}

complete -F _stock stock
