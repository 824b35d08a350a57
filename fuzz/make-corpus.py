#!/usr/bin/python3
"""Writes the seeds of the fuzzers, fuzz/corpus/<fuzzer>/, from the golden files of the tests and from the layouts of
packets and event words. Run it after a change of these; the tests replay what is there."""
import pathlib
import re
import shutil
import struct

fuzz = pathlib.Path(__file__).resolve().parent
golden = fuzz.parent / "tests" / "golden"


def write(fuzzer, name, content):
    file = fuzz / "corpus" / fuzzer / re.sub(r"\W+", "-", name)
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(content)


def words(*values):
    return struct.pack("<%dI" % len(values), *values)


def packet(extension, form, module, payload):
    second = len(payload) - 1 if form == 1 else 0
    return words(extension << 24 | second << 16 | form << 14 | module << 8 | len(payload) - 1) + payload + bytes(-len(payload) % 4)


def blocks(stream):
    """The stream in blocks of 256 words, each with a credit word first; what is left of the last one is padding."""
    step = 4 * 255
    return b"".join(words(1) + stream[at:at + step].ljust(step, b"\xff") for at in range(0, len(stream), step))


shutil.rmtree(fuzz / "corpus", ignore_errors=True)

for line in (golden / "wire_frames.txt").read_text().splitlines():
    name, frame = line.split(":")
    write("fuzz_message", name, bytes.fromhex(frame))

# forms.txt begins with the members of Everything, the class that these two fuzzers read
members = []
for line in (golden / "forms.txt").read_text().splitlines():
    name, rest = line.split(": ", 1)
    json, form = rest.rsplit("=", 1)
    members.append((name, json.strip(), bytes.fromhex(form)))
    if name == "variants":
        break
write("fuzz_binary", "everything", b"".join(form for _, _, form in members))
write("fuzz_json", "everything", ("{\"value0\": {%s}}" % ", ".join('"%s": %s' % member[:2] for member in members)).encode())
for number, (name, json, _) in enumerate(members, 1):  # the first byte names the member that the rest replaces
    write("fuzz_json", name, bytes([number]) + json.encode())

for name in "decoded", "encoded":  # the words in hexadecimal
    found = re.findall(r"\b[0-9A-F]{16}\b", (golden / f"chip_words_{name}.txt").read_text())
    write("fuzz_codec", name, b"".join(struct.pack("<Q", int(word, 16)) for word in found))

several = packet(0, 0, 3, bytes(range(8))) + packet(0, 1, 4, b"\1\2") + packet(7, 1, 5, bytes(256)) + packet(0, 0, 48, b"x")
write("fuzz_blocks", "packets", b"\0" + blocks(several))
write("fuzz_blocks", "packet over two blocks", b"\0" + blocks(packet(0, 0, 1, bytes(256)) * 4))
