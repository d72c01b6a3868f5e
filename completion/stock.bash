# Completion of stock in bash. The tool itself tells what may come next.
#
# bash puts what COMPREPLY holds on the line as it is, and a name of a file may hold
# anything, a command too: each word is quoted in the way that the typed one begins.

_stock()
{
    local word=${COMP_WORDS[COMP_CWORD]} typed=$2 quote= line
    local -a words=() kinds=()
    COMPREPLY=()
    case $word in
    \'*\'* | \"*\"*) quote=mixed ;;
    \'*) quote=single ;;
    \"*) quote=double ;;
    *[\"\']*) quote=mixed ;;
    esac
    [ "$quote" = single ] || _stock_unescape
    while IFS= read -r line; do
        case $line in
        $'\t'*) kinds+=("${line#?}") ;;
        *) words+=("${line%%$'\t'*}") ;;
        esac
    done < <("${1/#\~\//$HOME/}" complete "${COMP_WORDS[@]:0:COMP_CWORD}" "$typed" 2>/dev/null)
    for line in "${kinds[@]}"; do
        case $line in
        files) _stock_add_files ;;
        directories) compopt -o dirnames 2>/dev/null ;;  # fails outside of a completion
        variables) _stock_add -v ;;
        commands) _stock_add -c ;;
        esac
    done
    for line in "${words[@]}"; do
        _stock_offer
    done
}

# Takes the backslashes off what was typed.
_stock_unescape()
{
    local rest=$typed
    typed=
    while [[ $rest == *\\?* ]]; do
        typed+=${rest%%\\*}
        rest=${rest#*\\}
        typed+=${rest:0:1}
        rest=${rest:1}
    done
    typed+=$rest
}

# _stock_add KIND: adds what bash finds of a kind to the words.
_stock_add()
{
    compopt -o default 2>/dev/null  # which is for when there are none
    while IFS= read -r line; do
        words+=("$line")
    done < <(compgen "$1" -- "$typed")
}

# Leaves files to readline, which quotes them itself, unless there are other words.
_stock_add_files()
{
    compopt -o default 2>/dev/null
    [ ${#words[@]} -gt 0 ] || return
    for line in "$typed"*; do
        if [ -d "$line" ]; then
            words+=("$line/")
        elif [ -e "$line" ]; then
            words+=("$line")
        fi
    done
}

# Offers the line, quoted as the word on the command line begins.
_stock_offer()
{
    case $quote in
    '') printf -v line %q "$line" ;;
    single) [[ $line != *\'* ]] ;;            # between such quotes it has no way to stand
    double) [[ $line != *[\\\"\$\`!]* ]] ;;  # nor "!", and the others only behind a backslash
    *) false ;;                              # behind a quote in the middle: no telling
    esac && COMPREPLY+=("$line")
}

complete -F _stock stock
