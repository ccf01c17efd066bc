# Lists this project's C++ sources, one a line, relative to the repository.
cd "$(dirname "${BASH_SOURCE[0]}")/.."
find common sensor fpga plugin platform sim apps examples tests bench \
    \( -name '*.cpp' -o -name '*.h' \) -print | sort
