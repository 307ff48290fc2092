# bash completion for kestrava and kestrava-ir

_kestrava() {
    local cur prev
    _init_completion || return
    case $prev in
    --home | --export | --export-codes | --demo)
        _filedir -d
        return
        ;;
    --import-codes)
        _filedir
        return
        ;;
    --format)
        COMPREPLY=($(compgen -W 'flipper lircd pronto broadlink json irctl bin' -- "$cur"))
        return
        ;;
    --design)
        COMPREPLY=($(compgen -W '1 2 3 4 5 6' -- "$cur"))
        return
        ;;
    --remote | --scene)
        return
        ;;
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W '--home --demo --headless --verbose --export --import
            --overwrite --import-codes --remote --design --export-codes --format --press
            --scene --list --json --help --version' -- "$cur"))
        return
    fi
    _filedir kxp
}
complete -F _kestrava kestrava

_kestrava_ir() {
    local cur prev words cword
    _init_completion || return
    local formats='irctl pronto flipper broadlink lircd json globalcache esphome tasmota irdb bin'
    if ((cword == 1)); then
        COMPREPLY=($(compgen -W 'list capture send show encode climate convert help
            --help --version' -- "$cur"))
        return
    fi
    case $prev in
    --to)
        COMPREPLY=($(compgen -W "$formats" -- "$cur"))
        return
        ;;
    --broadlink-unit)
        COMPREPLY=($(compgen -W 'broadlink python-broadlink' -- "$cur"))
        return
        ;;
    esac
    case ${words[1]} in
    list)
        COMPREPLY=($(compgen -W '--json --help' -- "$cur"))
        ;;
    help)
        ((cword == 2)) &&
            COMPREPLY=($(compgen -W 'list capture send show encode climate convert' -- "$cur"))
        ;;
    capture | send)
        if ((cword == 2)); then
            COMPREPLY=($(compgen -W 'sim' -- "$cur"))
            COMPREPLY+=($(compgen -f -- "${cur:-/dev/}"))
        else
            _filedir
        fi
        ;;
    show)
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--mode2 --json --help' -- "$cur"))
        else
            _filedir
        fi
        ;;
    climate)
        if ((cword == 2)); then
            COMPREPLY=($(compgen -W "--list $(kestrava-ir climate --list 2>/dev/null |
                cut -f1)" -- "$cur"))
        elif [[ $cur == *=* ]]; then
            _filedir
        else
            COMPREPLY=($(compgen -W 'power= mode= temp= fan= swing=' -- "$cur"))
            compopt -o nospace
        fi
        ;;
    convert)
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--to --broadlink-unit --help' -- "$cur"))
        else
            _filedir
        fi
        ;;
    *)
        _filedir
        ;;
    esac
}
complete -F _kestrava_ir kestrava-ir
