#!/usr/bin/env bash
# Turns the device tree of the board that the emulator knows into that of a board with the camera head.
# Arguments: the kernel's tree, the one to be written.
set -euo pipefail
tree=$2
cp "$1" "$tree"
chmod u+w "$tree"
bus=/soc/bus@2000000
spi=$bus/spba-bus@2000000/spi@2008000
pins=$bus/gpio@209c000

set_text() { # NODE PROPERTY WORD...
    fdtput --type s "$tree" "$@"
}

# The sensor's port is /dev/spidev1.0, on the controller whose chip select the flash chip of that board has. What
# spidev takes has a name of some chip of other makers; it must not be "spidev".
set_text /aliases spi1 "$spi"
set_text /aliases spi0 $bus/spba-bus@2000000/spi@200c000
set_text "$spi/flash@0" compatible rohm,dh2228fv
fdtput --type i "$tree" "$spi/flash@0" spi-max-frequency 1000000
# The emulator has no DMA controller.
fdtput --delete "$tree" "$spi" dmas dma-names
fdtput --delete "$tree" $bus/spba-bus@2000000/serial@2020000 dmas dma-names

# Lines of the head, at their places in /dev/gpiochip0.
names=()
for ((line = 0; line < 32; ++line)); do
    case $line in
    5) names+=(PS_1.2V_EN) ;;
    6) names+=(PS_3.3SVDD_EN) ;;
    7) names+=(PS_3.3AVDDH_EN) ;;
    11) names+=(RESET_B) ;;
    12) names+=(EXT_TRIG_EN) ;;
    *) names+=("") ;;
    esac
done
set_text "$pins" gpio-line-names "${names[@]}"

# The emulator runs this timer at 100 MHz, the kernel takes it for one at 396 MHz: 300 ms would be 1.1 s.
set_text /soc/timer@a00600 status disabled
