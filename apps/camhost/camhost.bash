# Completion of camhost's command line for bash. Made by camhost --print-completion.

_camhost() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local options="-h --help --version --plugin --spi --list --workdir --board-output -c --command
        -i --interactive --listen --keep-going --echo --json --print-completion"
    local commands="init start stop capture wait snap validate reset calibrate whitecal power
        exposure interval mininterval trigger shutter clock strobe skipframes roi imageroi regions
        region vbin hbin mirror bpp packing color pattern gain black gamma white status info
        version camera temperature saveslot recallslot peek poke registers regfile watch save load
        diff pins iodir iovalue ioinvert help ? keyword quit exit"
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
    -c | --command)
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
        ;;
    --listen)
        mapfile -t COMPREPLY < <(compgen -W "127.0.0.1: [::1]:" -- "$word")
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
