# How a test gets root's rights for a folder of its own. Sourced.
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
