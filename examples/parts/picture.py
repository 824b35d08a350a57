"""Pictures of events as PNG files, with nothing but the standard library.

    canvas = Canvas(700, 560)
    draw_events(canvas, Box(20, 20, 660, 480), 346, 260, events)
    canvas.text(20, 520, "WHAT THE CAMERA SAW", WHITE)
    canvas.save("scene.png")
"""
import collections
import struct
import zlib

BACKGROUND = (13, 17, 23)
PANEL = (5, 7, 11)
FRAME = (48, 56, 68)
WHITE = (222, 230, 240)
GREY = (132, 144, 160)
ON = (255, 176, 64)  # a pixel became brighter
OFF = (64, 156, 255)  # a pixel became darker
REGION = (120, 220, 140)

Box = collections.namedtuple("Box", "left top width height")

# 5 x 7 letters: seven rows from the top, each two hexadecimal digits, the lowest bit on the right.
GLYPH_WIDTH, GLYPH_HEIGHT = 5, 7
GLYPHS = {
    " ": "00000000000000", "!": "04040404040004", "%": "18190204081303", "(": "02040808080402", ")": "08040202020408",
    "+": "0004041f040400", ",": "00000000040408", "-": "0000001f000000", ".": "00000000000c0c", "/": "01010204081010",
    ":": "000c0c000c0c00", "=": "00001f001f0000", ">": "10080402040810",
    "0": "0e11131519110e", "1": "040c040404040e", "2": "0e11010204081f", "3": "1f02040201110e", "4": "02060a121f0202",
    "5": "1f101e0101110e", "6": "0608101e11110e", "7": "1f010204080808", "8": "0e11110e11110e", "9": "0e11110f01020c",
    "A": "0e11111f111111", "B": "1e11111e11111e", "C": "0e11101010110e", "D": "1c12111111121c", "E": "1f10101e10101f",
    "F": "1f10101e101010", "G": "0e11101711110f", "H": "1111111f111111", "I": "0e04040404040e", "J": "0702020202120c",
    "K": "11121418141211", "L": "1010101010101f", "M": "111b1515111111", "N": "11191915131311", "O": "0e11111111110e",
    "P": "1e11111e101010", "Q": "0e11111115120d", "R": "1e11111e141211", "S": "0f10100e01011e", "T": "1f040404040404",
    "U": "1111111111110e", "V": "11111111110a04", "W": "1111111515150a", "X": "11110a040a1111", "Y": "1111110a040404",
    "Z": "1f01020408101f",
}


class Canvas:
    """Rows of red, green and blue bytes. What is drawn beyond the edge is cut off."""

    def __init__(self, width, height, colour=BACKGROUND):
        self.width, self.height = width, height
        self.rows = [bytearray(bytes(colour) * width) for _ in range(height)]

    def fill(self, box, colour):
        left, right = max(box.left, 0), min(box.left + box.width, self.width)
        run = bytes(colour) * (right - left)
        for row in self.rows[max(box.top, 0):max(box.top + box.height, 0)]:
            row[3 * left:3 * left + len(run)] = run

    def outline(self, box, colour, thickness=1):
        for edge in (Box(box.left, box.top, box.width, thickness), Box(box.left, box.top, thickness, box.height),
                     Box(box.left, box.top + box.height - thickness, box.width, thickness),
                     Box(box.left + box.width - thickness, box.top, thickness, box.height)):
            self.fill(edge, colour)

    def text(self, left, top, words, colour, scale=2):
        """Draws one line, in capitals, and returns the column behind it. An unknown letter shows as a blank."""
        for letter in words.upper():
            glyph = bytes.fromhex(GLYPHS.get(letter, GLYPHS[" "]))
            for y, bits in enumerate(glyph):
                for x in range(GLYPH_WIDTH):
                    if bits >> (GLYPH_WIDTH - 1 - x) & 1:
                        self.fill(Box(left + x * scale, top + y * scale, scale, scale), colour)
            left += (GLYPH_WIDTH + 1) * scale
        return left

    def save(self, path):
        def chunk(kind, content):
            body = kind + content
            return struct.pack(">I", len(content)) + body + struct.pack(">I", zlib.crc32(body))

        pixels = b"".join(b"\0" + bytes(row) for row in self.rows)  # 0: the row is not filtered
        with open(path, "wb") as file:
            file.write(b"\x89PNG\r\n\x1a\n")
            file.write(chunk(b"IHDR", struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)))
            file.write(chunk(b"IDAT", zlib.compress(pixels, 6)))
            file.write(chunk(b"IEND", b""))


def fit(box, width, height):
    """The largest part of the box, in its middle, with the shape of the sensor, and pixels a sensor pixel."""
    scale = min(box.width / width, box.height / height)
    if scale >= 3:
        scale = float(int(scale))  # equal squares
    across, down = int(width * scale), int(height * scale)
    return Box(box.left + (box.width - across) // 2, box.top + (box.height - down) // 2, across, down), scale


def draw_events(canvas, box, width, height, events):
    """Draws events on a panel: orange where pixels became brighter, blue where darker, and dimmer the older they are.
    Returns where the panel is and its pixels a sensor pixel."""
    panel, scale = fit(box, width, height)
    canvas.fill(panel, PANEL)
    canvas.outline(Box(panel.left - 2, panel.top - 2, panel.width + 4, panel.height + 4), FRAME, 2)
    if not events:
        return panel, scale
    first, last = events[0].timestamp, events[-1].timestamp
    glow = {}
    for event in events:
        age = (last - event.timestamp) / (last - first) if last > first else 0.0
        light = glow.setdefault((event.x, event.y), [0.0, 0.0])
        light[0 if event.polarity else 1] += 0.22 + 0.6 * (1.0 - age) ** 2
    for (x, y), (on, off) in glow.items():
        on, off = min(on, 1.0), min(off, 1.0)
        colour = [min(255, int(p + on * a + off * b)) for p, a, b in zip(PANEL, ON, OFF)]
        left, top = int(x * scale), int(y * scale)
        if left < panel.width and top < panel.height:
            canvas.fill(Box(panel.left + left, panel.top + top, max(1, int((x + 1) * scale) - left),
                            max(1, int((y + 1) * scale) - top)), colour)
    return panel, scale
