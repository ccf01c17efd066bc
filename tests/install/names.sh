# The packages. Sourced.

# For every processor the same.
names_for_all=(camera-head-decoders camera-head-doc python3-virtual-head)
names_for_one=(sensor-board-3u5mgxs libvarnox0 libvarnox-dev libvirtual-head0 libvirtual-head-dev camera-head-tools)
names=("${names_for_one[@]}" "${names_for_all[@]}")
