from .pd import Decoder
