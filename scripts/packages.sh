# Debian packages that this project needs, by what they are needed for. Sourced.
build_packages=(
    g++ cmake ninja-build pkg-config libc6-dev
    libinih-dev libpng-dev libcli11-dev libedit-dev libasio-dev nlohmann-json3-dev libmicrohttpd-dev
)
test_packages=(
    libgtest-dev libgmock-dev libbenchmark-dev
    clang-format clang-tidy cppcheck binutils abigail-tools
    clang lld libclang-rt-14-dev python3 python3-pytest python3-numpy
    sigrok-cli gtkwave i2c-tools spi-tools chromium dpkg-dev lintian doxygen device-tree-compiler
)
# The target: cross compiler and emulator.
target_packages=(g++-arm-linux-gnueabihf qemu-user-static)
# The target's kernel on an emulated board.
kernel_packages=(qemu-system-arm)
