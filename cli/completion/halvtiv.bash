# bash completion for halvtiv

# The functions of the definition files that the command line names, one a line.
_halvtiv_functions() {
    local i
    local -a files=()
    for ((i = 1; i < ${#COMP_WORDS[@]} - 1; i++)); do
        [[ ${COMP_WORDS[i]} == --defs ]] && files+=("${COMP_WORDS[i + 1]}")
    done
    printf 'public.%s\n' getdata getdatatofile getdatatoexportfile getcomplexdata executesql adddata updatedata \
        updatedataex updatedatacoladd deletedata getbinarydata setbinarydata deletebinarydata
    ((${#files[@]})) && "${COMP_WORDS[0]}" defs list "${files[@]}" 2>/dev/null | awk '/^[^ ]/ { print $1 }'
}

_halvtiv() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' defsCommand='' words=0 i
    COMPREPLY=()

    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --db | --connection | --connection-file | --password-file | --defs | -o | --output | --format | --to | --table | --data-folder | --from | --from-file | --from-password-file | --to-file | --to-password-file | --batch)
                ((i++))
                ;;
            --set | --set-file)
                ((i++))
                [[ ${COMP_WORDS[i + 1]} == = ]] && ((i += 2))  # COLUMN=VALUE comes in three words
                ;;
            -*) ;;
            *)
                if [[ -z $command ]]; then
                    command=${COMP_WORDS[i]}
                elif [[ $command == defs && -z $defsCommand ]]; then
                    defsCommand=${COMP_WORDS[i]}
                else
                    ((words++))
                fi
                ;;
        esac
    done

    local option=${COMP_WORDS[COMP_CWORD - (COMP_CWORD > 2 ? 3 : 0)]}
    if [[ $current == = ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
        previous='='
        current=''
    fi
    if [[ $previous == = ]]; then
        if [[ $option == --set-file ]]; then
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        return
    fi

    case $previous in
        --db | --connection-file | --password-file | --defs | -o | --output | --to | --from | --from-file | --from-password-file | --to-file | --to-password-file)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --format)
            mapfile -t COMPREPLY < <(compgen -W 'xml table csv json' -- "$current")
            return
            ;;
        --data-folder)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            return
            ;;
        --connection | --set | --set-file | --table | --batch) return ;;
    esac

    local options='--db --connection --connection-file --password-file --defs -o --output --format -h --help'
    case $command in
        '') options+=' --version' ;;
        call) options+=' --set --set-file --strict' ;;
        run) options+=' --strict' ;;
        export) options+=' --to --table --clear --data-folder' ;;
        copy) options='--from --from-file --from-password-file --to --to-file --to-password-file --batch -o --output --format -h --help' ;;
        defs) options='-h --help' ;;
    esac
    [[ -n $defsCommand ]] && options='-o --output -h --help'
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
        return
    fi

    case $command in
        '') mapfile -t COMPREPLY < <(compgen -W 'run call export copy defs' -- "$current") ;;
        run)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
        call)
            ((words == 0)) && mapfile -t COMPREPLY < <(compgen -W "$(_halvtiv_functions)" -- "$current")
            ;;
        export)
            if ((words == 0)); then
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -W "$(_halvtiv_functions)" -- "$current"
                    compgen -f -X '!*.xml' -- "$current")
            fi
            ;;
        defs)
            if [[ -z $defsCommand ]]; then
                mapfile -t COMPREPLY < <(compgen -W 'list check' -- "$current")
            else
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -f -- "$current")
            fi
            ;;
    esac
}

complete -F _halvtiv halvtiv
