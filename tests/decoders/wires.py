"""Signals drawn by hand, as a value-change dump: what a logic analyser sees on the wires of a head."""

# One sample every 10 ns, 100 million in a second.
HEADER = "$timescale 10 ns $end\n$scope module head $end\n{}$upscope $end\n$enddefinitions $end\n"


class Wires:
    """Levels of wires over time. Time goes on by `wait`, in samples."""

    def __init__(self, **levels):
        self.now = 0
        self.codes = {name: chr(ord("a") + place) for place, name in enumerate(levels)}
        self.lines = ["#0"] + [f"{level}{self.codes[name]}" for name, level in levels.items()]
        self.levels = dict(levels)

    def wait(self, samples):
        self.now += samples

    def set(self, name, level):
        if self.levels[name] != level:
            self.levels[name] = level
            self.lines += [f"#{self.now}", f"{level}{self.codes[name]}"]

    def write(self, path):
        """The dump, with some time at its end."""
        names = "".join(f"$var wire 1 {code} {name} $end\n" for name, code in self.codes.items())
        path.write_text(HEADER.format(names) + "\n".join(self.lines) + f"\n#{self.now + 100}\n", encoding="ascii")


class Spi(Wires):
    """The sensor's wires in mode 0: data changes at the beginning of a bit, the clock rises in its middle."""

    def __init__(self, period=10, cs=1):
        super().__init__(CS=cs, CLK=0, MOSI=0, MISO=0)
        self.period = period  # samples; 10: 10 MHz

    def bits(self, text):
        """Bits as they come, such as "0010"."""
        for bit in text:
            self.set("MOSI", int(bit))
            self.wait(self.period // 2)
            self.set("CLK", 1)
            self.wait(self.period - self.period // 2)
            self.set("CLK", 0)

    def select(self):
        self.wait(20)
        self.set("CS", 0)
        self.wait(5)

    def release(self):
        self.wait(5)
        self.set("CS", 1)

    def selected(self, *texts, pause=0):
        """One selection with these bits, and a pause of the clock behind each."""
        self.select()
        for text in texts:
            self.bits(text)
            self.wait(pause)
        self.release()
        return self


class I2c(Wires):
    """The supply monitor's wires. A bit takes 10 us."""

    STEP = 250  # samples: a quarter of a bit

    def __init__(self):
        super().__init__(SCL=1, SDA=1)

    def step(self, **levels):
        for name, level in levels.items():
            self.set(name, level)
        self.wait(self.STEP)

    def start(self):
        self.step(SDA=1)
        self.step(SCL=1)
        self.step(SDA=0)
        self.step(SCL=0)

    def stop(self):
        self.step(SDA=0)
        self.step(SCL=1)
        self.step(SDA=1)

    def bit(self, level):
        self.step(SDA=level)
        self.step(SCL=1)
        self.step()
        self.step(SCL=0)

    def byte(self, value, acknowledged=True):
        for place in range(7, -1, -1):
            self.bit(value >> place & 1)
        self.bit(0 if acknowledged else 1)

    def message(self, text):
        """Signs apart by blanks: S start, P stop, two hexadecimal digits a byte, with "-" one that is not acknowledged."""
        for sign in text.split():
            if sign == "S":
                self.start()
            elif sign == "P":
                self.stop()
            else:
                self.byte(int(sign[:2], 16), not sign.endswith("-"))
        return self
