# Completion of virtual-head's command line for bash.

_virtual_head() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} i
    local options="--help --version --scenario --workdir --log --summary --overview --vcd --report --draw
        --time --frames
        --record --replay --hardware --serve --keep-serving --stopped --max-frames --scene --print-registers --print-register-table
        --print-rules --print-scenario-keys -h"
    COMPREPLY=()
    # After -- comes the program with arguments of its own.
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then
            if ((i + 1 == COMP_CWORD)); then
                mapfile -t COMPREPLY < <(compgen -c -- "$word"; compgen -f -- "$word")
            else
                mapfile -t COMPREPLY < <(compgen -f -- "$word")
            fi
            return
        fi
    done
    case $before in
    --scenario)
        mapfile -t COMPREPLY < <(compgen -f -X '!*.ini' -- "$word"; compgen -d -- "$word")
        ;;
    --scene)
        mapfile -t COMPREPLY < <(compgen -f -X '!*.png' -- "$word"; compgen -d -- "$word")
        ;;
    --workdir | --frames)
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
        ;;
    --log | --record | --replay | --summary | --vcd | --report | --draw)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        ;;
    --serve)
        mapfile -t COMPREPLY < <(compgen -W "0 8080 127.0.0.1:8080" -- "$word")
        ;;
    --time)
        mapfile -t COMPREPLY < <(compgen -W "virtual real" -- "$word")
        ;;
    *)
        mapfile -t COMPREPLY < <(compgen -W "$options --" -- "$word")
        ;;
    esac
}
complete -o filenames -F _virtual_head virtual-head
