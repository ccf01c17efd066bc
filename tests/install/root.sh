# What the tests share that install the packages in a folder which is a root. Sourced.

source tests/install/names.sh
step() { echo "== $*"; }
fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# Makes a new `folder`, which goes when the test ends, and in it `root`, an empty one in which packages can
# be installed with the rights of `as_root`.
make_root() {
    folder=$(mktemp -d)
    root=$folder/root
    as_root=()
    trap '"${as_root[@]}" rm -rf "$folder"' EXIT
    mkdir "$root"
    chmod 755 "$folder" "$root"
    get_root "$root"
}

# Gets root's rights for a folder.
#
# Sets `as_root` to the command that runs others as root: the user's own rights, a user namespace's or
# sudo's. Ends the test with 77, which says that it was left out, where there is none of them.
# Argument: an empty folder.
get_root() {
    local can
    for can in env 'unshare --user --map-root-user' 'sudo -n'; do
        read -ra as_root <<<"$can"
        # Root gets into the folder and finds nothing to run.
        if [[ $("${as_root[@]}" chroot "$1" /nothing 2>&1) == *"failed to run command"* ]]; then
            return
        fi
    done
    as_root=()
    echo "SKIPPED: to install packages in a folder one must be root, or have user namespaces or sudo."
    exit 77
}
