# The platform libraries' binary interfaces. Sourced.

# Writes the interface of a library as XML. Arguments: the library's name, its file, the XML file.
write_interface() {
    abidw --suppressions abi/leave-out.ini --headers-dir "platform/$1/include" --drop-private-types \
        --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --out-file "$3" "$2"
}

# The record of a library for the processor that a file of it is for. Arguments: name, file.
record_of() {
    local machine
    machine=$(LC_ALL=C readelf -h "$2" | sed -n 's/^ *Machine: *//p')
    case $machine in
    *X86-64) echo "abi/x86_64/$1.xml" ;;
    ARM) echo "abi/armhf/$1.xml" ;;
    *)
        echo "$2: there is no record for the machine $machine" >&2
        return 1
        ;;
    esac
}

soname_of() {
    LC_ALL=C readelf -d "$1" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p'
}
