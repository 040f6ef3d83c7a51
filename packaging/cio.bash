# Completion of cio for bash.

_cio() {
    local current=${COMP_WORDS[COMP_CWORD]}
    local previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands='put get cat ls tree stat du cp mv rm mkdir truncate verify image serve help'
    local common='--help --option --options --json --quiet --debug -o -q -h'
    local transforms='--compress --level --encrypt --key-file --limit'
    local ciphers='aes-256-cbc aes-192-cbc aes-128-cbc camellia-256-cbc sm4-cbc none'
    local command='' member='' word i
    COMPREPLY=()

    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word != -* && -z $command ]]; then
            command=$word
        elif [[ $word != -* ]]; then
            member=$word
            break
        fi
    done
    if [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$current")
        return
    fi

    case $previous in
    --options | --key-file | --extents | --root | --users | --access-log | --tls-cert | --tls-key)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    -o | --option)
        compopt -o nospace
        mapfile -t COMPREPLY < <(compgen -S = -W "$(_cio_keys)" -- "$current")
        return
        ;;
    --compress)
        mapfile -t COMPREPLY < <(compgen -W 'none auto lzop zstd' -- "$current")
        return
        ;;
    --encrypt)
        mapfile -t COMPREPLY < <(compgen -W "$ciphers" -- "$current")
        return
        ;;
    -j | --jobs | --level | --limit | --block-size | --descriptor-size) return ;;
    esac

    if [[ $current == -* ]]; then
        local own=''
        case $command in
        put | get) own="--overwrite --resume --jobs -j $transforms" ;;
        cat) own=$transforms ;;
        verify) own="--jobs -j $transforms" ;;
        image)
            case $member in
            save) own="--overwrite --extents --raw --block-size --descriptor-size $transforms" ;;
            restore) own="--overwrite --zero $transforms" ;;
            info | verify) own=$transforms ;;
            *) common='--help -h' ;;
            esac
            ;;
        cp | mv) own='--overwrite' ;;
        ls) own='--long --recursive -l -R' ;;
        rm) own='--recursive -r' ;;
        du) own='--summarize -s' ;;
        serve)
            common='--help -h'
            own='--root --listen --tls-cert --tls-key --users --allow-anonymous --read-only --token
                --quota --no-sync --access-log --threads --max-connections --max-per-address
                --max-head --max-fields --head-time --body-time --least-rate --idle-time --stop-time'
            ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$own $common" -- "$current")
        return
    fi

    case $command in
    image)
        if [[ -z $member ]]; then
            mapfile -t COMPREPLY < <(compgen -W 'save restore info verify' -- "$current")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        ;;
    serve) mapfile -t COMPREPLY < <(compgen -W 'http user' -- "$current") ;;
    help) mapfile -t COMPREPLY < <(compgen -W "$commands options" -- "$current") ;;
    put | get | verify)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    esac
}

# The keys of connection options, from the program itself.
_cio_keys() {
    local line
    while IFS= read -r line; do
        [[ $line =~ ^\ \ ([a-z0-9_]+)\  ]] && printf '%s\n' "${BASH_REMATCH[1]}"
    done < <(cio help options 2>/dev/null)
}

complete -F _cio cio
