"""Readings of the supply monitor on a 3U5MGXS camera head, an ADS7828, on top of the decoder `i2c`.

The host writes a command byte that chooses the channel, and reads two bytes. Names, dividers and limits of the supplies
come from the table that lies in this folder.
"""

from .pd import Decoder
