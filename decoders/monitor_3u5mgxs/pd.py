"""The decoder of the supply monitor's I2C wires.

Installations of PulseView bring a Python of their own, some as old as 3.4: nothing newer is used here.
"""

import json
import os

import sigrokdecode as srd

TABLE = 'sensor_board_3u5mgxs.registers.json'

# Command byte of the ADS7828.
SINGLE_ENDED = 0x80  # SD; otherwise a channel against its neighbour
REFERENCE_ON = 0x08  # PD1
CONVERTER_ON = 0x04  # PD0
READING_BYTES = 2


class TableError(Exception):
    """The table beside this file cannot be read."""


def volts_text(volts):
    """Volts with the six digits that the driver prints."""
    return '{:.6g} V'.format(volts)


class Byte:
    """A byte as it came over the bus, with its first and last sample."""

    def __init__(self, value, ss, es):
        self.value = value
        self.ss = ss
        self.es = es


class Command:
    """What a command byte says."""

    def __init__(self, value):
        self.value = value
        bits = value >> 4 & 7  # the chip counts the even inputs first, then the odd ones
        self.channel = (bits & 3) << 1 | bits >> 2
        self.single_ended = value & SINGLE_ENDED != 0
        self.reference_on = value & REFERENCE_ON != 0
        self.converter_on = value & CONVERTER_ON != 0

    def input_text(self):
        """The input that is converted."""
        if self.single_ended:
            return 'channel {}'.format(self.channel)
        return 'channel {} against {}'.format(self.channel, self.channel ^ 1)


class Supply:
    """A supply, as the table has it."""

    def __init__(self, entry):
        self.name = entry['name']
        self.scale = entry['scale']  # undoes the divider in front of the channel
        self.least = entry['least']  # V
        self.most = entry['most']  # V

    def verdict(self, volts):
        """'low', 'high', or 'within': a limit itself is within."""
        if volts > self.most:
            return 'high'
        return 'low' if volts < self.least else 'within'

    def words(self, verdict):
        """A verdict for people."""
        return {
            'high': 'above {:g} V'.format(self.most),
            'low': 'below {:g} V'.format(self.least),
            'within': 'within {:g} to {:g} V'.format(self.least, self.most),
        }[verdict]


class Monitor:
    """The supply monitor, as the table has it."""

    def __init__(self, table):
        self.address = int(table['address'], 16)
        self.reference = table['reference']  # V, of the full scale
        self.value_bits = table['value_bits']
        self.supplies = {entry['channel']: Supply(entry) for entry in table['supplies']}


def read_table():
    """The supply monitor of the table beside this file. Raises TableError with file and reason."""
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), TABLE)
    try:
        with open(path, encoding='utf-8') as file:
            table = json.load(file)
        if table['format'] != 1:
            raise ValueError('format {} is not known'.format(table['format']))
        return Monitor(table['monitor'])
    except OSError as error:
        raise TableError('{}: {}'.format(path, error.strerror)) from None
    except (ValueError, KeyError, TypeError) as error:
        raise TableError('{}: {}: {}'.format(path, type(error).__name__, error)) from None


class Decoder(srd.Decoder):
    """Names channel and voltage of each reading, its supply, and whether the supply is inside its limits.

    OUTPUT_PYTHON, a list:
     ['COMMAND', byte]
     ['READING', channel, number, volts, name, supply volts, verdict]: volts at the pin; the verdict is 'low',
      'within' or 'high'. The last three are None where the table has no supply at this channel, and the channel is None
      where no command was seen.
    """

    api_version = 3
    id = 'monitor_3u5mgxs'
    name = '3U5MGXS supplies'
    longname = '3U5MGXS camera head, supply monitor'
    desc = 'Supplies of a 3U5MGXS camera head, as its ADS7828 reads them.'
    license = 'all rights reserved'
    inputs = ['i2c']
    outputs = ['monitor_3u5mgxs']
    tags = ['IC', 'Analog/digital']
    options = ()
    annotations = (
        ('command', 'Command'),
        ('reading', 'Reading'),
        ('supply', 'Supply'),
        ('warning', 'Warning'),
    )
    annotation_rows = (
        ('commands', 'Commands', (0,)),
        ('readings', 'Readings', (1,)),
        ('supplies', 'Supplies', (2,)),
        ('warnings', 'Warnings', (3,)),
    )
    binary = (
        ('supplies', 'Supplies, a line each'),
    )

    ANN_COMMAND, ANN_READING, ANN_SUPPLY, ANN_WARNING = range(4)
    BIN_SUPPLIES = 0

    def __init__(self):
        self.monitor = None
        self.reset()

    def reset(self):
        """Forgets what came so far."""
        self.command = None  # the last one: the chip keeps it
        self.forget_message()

    def forget_message(self):
        """A new message, or none."""
        self.address_bits = None  # of the byte that comes next
        self.direction = None  # 'R' or 'W' while the monitor is meant
        self.commanded = False  # since the start
        self.read = []  # bytes
        self.last = None  # what is acknowledged next

    def start(self):
        """Reads the table. Raises TableError: a decoder without names serves nobody."""
        self.out_ann = self.register(srd.OUTPUT_ANN)
        self.out_binary = self.register(srd.OUTPUT_BINARY)
        self.out_python = self.register(srd.OUTPUT_PYTHON)
        self.monitor = read_table()

    def annotate(self, ss, es, kind, *texts):
        """Puts an annotation, the longest text first."""
        self.put(ss, es, self.out_ann, [kind, list(texts)])

    def decode(self, ss, es, data):
        """Takes a packet of the decoder `i2c`."""
        kind, value = data
        if kind in ('START', 'START REPEAT', 'STOP'):
            self.message_ends(es)
            if kind != 'START REPEAT':
                self.forget_message()
        elif kind == 'BITS':
            self.address_bits = sum(bit[0] << place for place, bit in enumerate(value))
        elif kind in ('ADDRESS READ', 'ADDRESS WRITE'):
            # By its bits: the number in the packet depends on an option of the decoder `i2c`.
            meant = self.address_bits >> 1 == self.monitor.address
            self.direction = kind[len('ADDRESS ')] if meant else None
            self.read = []
            self.last = Byte(None, ss, es) if meant else None
        elif self.direction is not None:
            self.take_byte(kind, Byte(value, ss, es))

    def take_byte(self, kind, byte):
        """A byte from or to the monitor, or its acknowledgement."""
        if kind == 'DATA WRITE':
            self.last = byte
            self.take_command(byte)
        elif kind == 'DATA READ':
            self.last = None  # the host acknowledges, or not: it decides how much it reads
            self.read.append(byte)
        elif kind == 'NACK' and self.last is not None:
            what = 'The monitor does not answer' if self.last.value is None else 'The monitor refuses the command'
            self.annotate(self.last.ss, byte.es, self.ANN_WARNING, what, 'No answer', 'NACK')
            if self.last.value is None:
                self.direction = None

    def take_command(self, byte):
        """A command byte: it chooses what is converted."""
        command = Command(byte.value)
        self.command = command
        self.commanded = True
        inputs = command.input_text()
        self.annotate(byte.ss, byte.es, self.ANN_COMMAND,
                      'Command 0x{:02X}: {}, reference {}, converter {}'.format(
                          byte.value, inputs, 'on' if command.reference_on else 'off',
                          'on' if command.converter_on else 'off between readings'),
                      'Command 0x{:02X}: {}'.format(byte.value, inputs), '0x{:02X}'.format(byte.value))
        self.put(byte.ss, byte.es, self.out_python, ['COMMAND', byte.value])

    def message_ends(self, at):
        """The bytes that were read are all: two are a reading."""
        read, self.read = self.read, []
        if not read:
            return
        if len(read) == 1 and not self.commanded:
            return  # somebody looks whether there is a chip
        if len(read) < READING_BYTES:
            self.annotate(read[0].ss, at, self.ANN_WARNING,
                          'Reading cut short: {} of {} bytes'.format(len(read), READING_BYTES), 'Cut short', 'Cut')
            return
        self.tell_reading(read[0].ss, read[1].es, read[0].value << 8 | read[1].value)
        if len(read) > READING_BYTES:
            self.annotate(read[READING_BYTES].ss, read[-1].es, self.ANN_WARNING,
                          'Bytes more than a reading has: {}'.format(len(read) - READING_BYTES), 'Too many bytes')

    def tell_reading(self, ss, es, number):
        """Puts what a reading says."""
        command = self.command
        bits = self.monitor.value_bits
        if number >> bits != 0:
            self.annotate(ss, es, self.ANN_WARNING,
                          '0x{:04X} has bits that are never set: nobody drives SDA'.format(number),
                          'Nobody drives SDA', 'SDA')
            return
        volts = number / (1 << bits) * self.monitor.reference
        inputs = command.input_text() if command else 'unknown channel'
        text = volts_text(volts)
        self.annotate(ss, es, self.ANN_READING,
                      '{}: 0x{:03X}, {} at the pin'.format(inputs[0].upper() + inputs[1:], number, text),
                      '0x{:03X}, {}'.format(number, text), '0x{:03X}'.format(number))
        if command is None:
            self.annotate(ss, es, self.ANN_WARNING, 'No command was seen: the channel is not known', 'No command')
        elif not command.reference_on:
            self.annotate(ss, es, self.ANN_WARNING, 'Read with the reference off: the number means nothing',
                          'Reference off', 'Off')
        supply = self.monitor.supplies.get(command.channel) if command and command.single_ended else None
        told = [None, None, None]
        if supply is not None and command.reference_on:
            told = self.tell_supply(ss, es, supply, volts * supply.scale)
        self.put(ss, es, self.out_python, ['READING', command.channel if command else None, number, volts] + told)

    def tell_supply(self, ss, es, supply, volts):
        """Puts a supply with its limits; for a file, the line that the driver prints. Returns name, volts, verdict."""
        verdict = supply.verdict(volts)
        said = '{}: {}'.format(supply.name, volts_text(volts))
        texts = ['{}, {}'.format(said, supply.words(verdict)), said, volts_text(volts), '{:.3g} V'.format(volts)]
        self.annotate(ss, es, self.ANN_SUPPLY, *texts)
        if verdict != 'within':
            self.annotate(ss, es, self.ANN_WARNING, texts[0], '{} {}'.format(supply.name, verdict), verdict)
        line = '{}: {:.6g}\n'.format(supply.name, volts)
        self.put(ss, es, self.out_binary, [self.BIN_SUPPLIES, line.encode('ascii')])
        return [supply.name, volts, verdict]
