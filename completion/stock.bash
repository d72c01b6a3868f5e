# Completion of stock in bash. "stock complete" prints the possible completions.
#
# bash inserts the words of COMPREPLY into the command line unchanged, and the name of a file may
# contain anything, even a command. So each word is quoted in the way in which the typed word
# begins.

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

# Removes the backslashes from $typed.
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

# _stock_add KIND: adds the completions of an option of compgen, such as -v, to $words.
_stock_add()
{
    compopt -o default 2>/dev/null  # file names, if there are no words
    while IFS= read -r line; do
        words+=("$line")
    done < <(compgen "$1" -- "$typed")
}

# If there are no other words, readline completes files itself and quotes them. Otherwise adds the
# files to $words.
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

# Adds $line to COMPREPLY, quoted in the way in which the word on the command line begins.
_stock_offer()
{
    case $quote in
    '') printf -v line %q "$line" ;;
    single) [[ $line != *\'* ]] ;;            # single quotes cannot contain a single quote
    double) [[ $line != *[\\\"\$\`!]* ]] ;;  # double quotes would need backslashes for these
    *) false ;;                              # a quote in the middle of the word: not supported
    esac && COMPREPLY+=("$line")
}

complete -F _stock stock
