"""Register writes of the 3U5MGXS image sensor, on top of the decoder `spi`.

The sensor takes 32 bits, address above value, highest bit first, as long as it is selected. It sends nothing back:
there is no read frame, and no wire for one. Names of registers and fields come from the table that lies in this folder.
"""

from .pd import Decoder
