# Completion of camhost's command line for bash.

_camhost() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local options="--help --version --plugin --spi --workdir --board-output --command --interactive --listen
        --diagnose --power --json --keep-going --echo -h -c -i"
    local commands="init start stop capture wait status info diagnose exposure interval roi trigger clock
        pattern mirror bpp regfile help"
    COMPREPLY=()
    case $before in
    --plugin)
        mapfile -t COMPREPLY < <(compgen -f -X '!*.so*' -- "$word"; compgen -d -- "$word")
        ;;
    --spi)
        mapfile -t COMPREPLY < <(compgen -f -- "${word:-/dev/spidev}")
        ;;
    --workdir)
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        ;;
    --board-output)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        ;;
    --listen)
        mapfile -t COMPREPLY < <(compgen -W "127.0.0.1: [::1]:" -- "$word")
        ;;
    -c | --command)
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
        ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        else
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
        fi
        ;;
    esac
}
complete -o filenames -F _camhost camhost
