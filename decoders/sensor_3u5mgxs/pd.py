"""The decoder of the sensor's SPI wires.

Installations of PulseView bring a Python of their own, some as old as 3.4: nothing newer is used here.
"""

import json
import os
import re

import sigrokdecode as srd

TABLE = 'sensor_board_3u5mgxs.registers.json'

# Bits over which the clock is measured. A port may pause between bytes, not within one.
CLOCKED_BITS = 8


class TableError(Exception):
    """The table beside this file cannot be read."""


class Bit:
    """A bit as it came over the wire, with its first and last sample."""

    def __init__(self, value, ss, es):
        self.value = value
        self.ss = ss
        self.es = es


class Field:
    """Some bits of a register, as the table has them."""

    def __init__(self, entry):
        self.name = entry['name']
        self.low_bit = entry['low_bit']
        self.bits = entry['bits']
        meaning = re.match(r'(.*?)(?: \[([^\]]*)\])?$', entry['meaning'])
        self.meaning = meaning.group(1)
        self.unit = ' ' + meaning.group(2) if meaning.group(2) else ''

    def mask(self):
        """Its bits in the register."""
        return ((1 << self.bits) - 1) << self.low_bit

    def of(self, value):
        """Its number in the value of the register."""
        return (value & self.mask()) >> self.low_bit


class Registers:
    """The sensor's registers by address."""

    def __init__(self, table):
        self.address_bits = table['address_bits']
        self.value_bits = table['value_bits']
        self.word_bits = self.address_bits + self.value_bits
        self.fastest_clock = table['fastest_clock']  # Hz
        self.fields = {}
        for entry in table['fields']:
            self.fields.setdefault(int(entry['address'], 16), []).append(Field(entry))
        for fields in self.fields.values():
            fields.sort(key=lambda field: -field.low_bit)  # as they come over the wire

    def name(self, address):
        """What the table calls a register: its fields, lowest first; empty where it has none."""
        return ', '.join(field.name for field in reversed(self.fields.get(address, [])))

    def outside(self, address, value):
        """The bits of a value that belong to no field of a known register."""
        for field in self.fields[address]:
            value &= ~field.mask()
        return value


def read_table():
    """The sensor's registers of the table beside this file. Raises TableError with file and reason."""
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), TABLE)
    try:
        with open(path, encoding='utf-8') as file:
            table = json.load(file)
        if table['format'] != 1:
            raise ValueError('format {} is not known'.format(table['format']))
        return Registers(table['sensor'])
    except OSError as error:
        raise TableError('{}: {}'.format(path, error.strerror)) from None
    except (ValueError, KeyError, TypeError) as error:
        raise TableError('{}: {}: {}'.format(path, type(error).__name__, error)) from None


def hex_text(value, bits):
    """A number of so many bits, such as 0x00FA0."""
    return '0x{:0{}X}'.format(value, (bits + 3) // 4)


def number(bits):
    """What bits stand for, the first one highest."""
    value = 0
    for bit in bits:
        value = value << 1 | bit.value
    return value


class Decoder(srd.Decoder):
    """Names register, fields and values of each word that goes to the sensor.

    OUTPUT_PYTHON, a list:
     ['WRITE', address, value, [[name, number], ...]]: a word, its fields lowest first
     ['REST', bits, value]: fewer bits than a word, which the sensor drops
    """

    api_version = 3
    id = 'sensor_3u5mgxs'
    name = '3U5MGXS sensor'
    longname = '3U5MGXS image sensor, register writes'
    desc = 'Registers of a 3U5MGXS image sensor, as its SPI wires carry them.'
    license = 'all rights reserved'
    inputs = ['spi']
    outputs = ['sensor_3u5mgxs']
    tags = ['IC', 'Sensor']
    options = (
        {'id': 'fields', 'desc': 'Show fields', 'default': 'yes', 'values': ('yes', 'no')},
        {'id': 'numbers', 'desc': 'Numbers of fields', 'default': 'decimal', 'values': ('decimal', 'hexadecimal')},
        {'id': 'unknown', 'desc': 'Warn of registers and bits that the table does not have', 'default': 'yes',
         'values': ('yes', 'no')},
        {'id': 'clock', 'desc': 'Warn of a clock that is too fast', 'default': 'yes', 'values': ('yes', 'no')},
    )
    annotations = (
        ('word', 'Word'),
        ('write', 'Register write'),
        ('field', 'Field'),
        ('warning', 'Warning'),
    )
    annotation_rows = (
        ('words', 'Words', (0,)),
        ('writes', 'Register writes', (1,)),
        ('fields', 'Fields', (2,)),
        ('warnings', 'Warnings', (3,)),
    )
    binary = (
        ('settings', 'Writes as a settings file'),
    )

    ANN_WORD, ANN_WRITE, ANN_FIELD, ANN_WARNING = range(4)
    BIN_SETTINGS = 0

    def __init__(self):
        self.samplerate = None  # Hz
        self.registers = None
        self.reset()

    def reset(self):
        """Forgets what came so far."""
        self.pending = []  # bits of the present word
        self.selected_bits = 0  # since chip select changed
        self.told_no_mosi = False

    def metadata(self, key, value):
        """Hears the sample rate."""
        if key == srd.SRD_CONF_SAMPLERATE:
            self.samplerate = value

    def start(self):
        """Reads the table. Raises TableError: a decoder without names serves nobody."""
        self.out_ann = self.register(srd.OUTPUT_ANN)
        self.out_binary = self.register(srd.OUTPUT_BINARY)
        self.out_python = self.register(srd.OUTPUT_PYTHON)
        self.registers = read_table()

    def warn(self, ss, es, *texts):
        """Puts a warning, the longest text first."""
        self.put(ss, es, self.out_ann, [self.ANN_WARNING, list(texts)])

    def decode(self, ss, es, data):
        """Takes a packet of the decoder `spi`."""
        kind = data[0]
        if kind == 'CS-CHANGE':
            self.selection_changed(ss, data[1], data[2])
        elif kind == 'BITS':
            self.take_bits(ss, es, data[1])
        elif kind == 'TRANSFER':
            self.selection_ended(ss, es)

    def selection_changed(self, at, old, new):
        """Chip select changed, or it is the beginning: what is no whole word by now is lost."""
        if old is None and new is None:
            self.warn(at, at, 'No chip select: words are counted from the first bit', 'No chip select')
        if self.pending:
            self.tell_rest(at)
        self.pending = []

    def selection_ended(self, ss, es):
        """The whole of a selection, after the change that ended it."""
        if self.selected_bits == 0:
            # The decoder `spi` keeps to itself what is less than a word of its own.
            self.warn(ss, es, 'Selected without a word: no clock, or a word that was cut short', 'No word')
        self.selected_bits = 0

    def take_bits(self, ss, es, bits):
        """Takes bits, the last one first whatever the order in which `spi` reads them: the sensor takes them as they
        come. A word may come in several of them, and so may several words."""
        if bits is None:
            if not self.told_no_mosi:
                self.warn(ss, es, 'No MOSI: nothing to decode', 'No MOSI')
            self.told_no_mosi = True
            self.selected_bits += 1  # there was a clock
            return
        self.selected_bits += len(bits)
        for bit in reversed(bits):
            self.pending.append(Bit(*bit))
            if len(self.pending) == self.registers.word_bits:
                self.tell_word(self.pending)
                self.pending = []

    def tell_rest(self, at):
        """Warns of bits that are too few for a word."""
        rest = number(self.pending)
        ss = self.pending[0].ss
        count = '{} of {} bits'.format(len(self.pending), self.registers.word_bits)
        self.warn(ss, at,
                  'Word cut short: {}, {}; the sensor drops them'.format(count, hex_text(rest, len(self.pending))),
                  'Word cut short: ' + count, 'Cut short', 'Cut')
        self.put(ss, at, self.out_python, ['REST', len(self.pending), rest])

    def tell_word(self, bits):
        """Puts what a whole word says."""
        registers = self.registers
        word = number(bits)
        address = word >> registers.value_bits
        value = word & ((1 << registers.value_bits) - 1)
        ss, es = bits[0].ss, bits[-1].es
        text = hex_text(word, registers.word_bits)
        self.put(ss, es, self.out_ann, [self.ANN_WORD, ['Word ' + text, text, text[2:]]])
        self.tell_write(ss, es, address, value)
        fields = registers.fields.get(address, [])
        if self.options['fields'] == 'yes':
            for field in fields:
                self.tell_field(bits, field, value)
        self.check_register(ss, es, address, value)
        self.check_clock(bits)
        self.put(ss, es, self.out_python,
                 ['WRITE', address, value, [[field.name, field.of(value)] for field in reversed(fields)]])

    def tell_write(self, ss, es, address, value):
        """Puts a register with its value; for a file, a line that the driver reads."""
        address_text = hex_text(address, self.registers.address_bits)
        value_text = hex_text(value, self.registers.value_bits)
        name = self.registers.name(address)
        texts = ['{} {}: {}'.format(address_text, name or 'unknown', value_text)]
        if name:
            texts.append('{}: {}'.format(name, value_text))
        texts += ['{}: {}'.format(address_text, value_text), address_text]
        self.put(ss, es, self.out_ann, [self.ANN_WRITE, texts])
        line = ' '.join([address_text, value_text] + ([name] if name else [])) + '\n'
        self.put(ss, es, self.out_binary, [self.BIN_SETTINGS, line.encode('ascii')])

    def tell_field(self, bits, field, value):
        """Puts a field over the bits that carry it."""
        last = len(bits) - 1 - field.low_bit
        first = last - field.bits + 1
        shown = field.of(value)
        if self.options['numbers'] == 'hexadecimal':
            shown = hex_text(shown, field.bits)
        short = '{} = {}'.format(field.name, shown)
        self.put(bits[first].ss, bits[last].es, self.out_ann, [self.ANN_FIELD, [
            '{}{} ({})'.format(short, field.unit, field.meaning), short + field.unit, short, str(shown)]])

    def check_register(self, ss, es, address, value):
        """Warns of what the table does not have."""
        if self.options['unknown'] == 'no':
            return
        text = hex_text(address, self.registers.address_bits)
        if address not in self.registers.fields:
            self.warn(ss, es, 'Register {} is not in the table'.format(text), 'Unknown ' + text, 'Unknown')
            return
        outside = self.registers.outside(address, value)
        if outside != 0:
            bits = hex_text(outside, self.registers.value_bits)
            self.warn(ss, es, 'Bits {} of {} belong to no field'.format(bits, text), 'Bits ' + bits, 'Bits')

    def check_clock(self, bits):
        """Warns of a clock that the sensor does not follow. An edge is seen up to a sample late: a clock is too fast
        when it is so with the longest time that fits what was seen."""
        if self.options['clock'] == 'no' or not self.samplerate:
            return
        fastest = 0  # Hz
        for first in range(0, len(bits) - CLOCKED_BITS + 1, CLOCKED_BITS):
            samples = bits[first + CLOCKED_BITS - 1].ss - bits[first].ss
            fastest = max(fastest, (CLOCKED_BITS - 1) * self.samplerate / (samples + 1))
        if fastest > self.registers.fastest_clock:
            self.warn(bits[0].ss, bits[-1].es,
                      'Clock of at least {:.1f} MHz: the sensor follows at most {:g} MHz'.format(
                          fastest / 1e6, self.registers.fastest_clock / 1e6), 'Clock too fast', 'Clock')
