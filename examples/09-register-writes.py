"""Prints the registers of a chip that a setting changes, compared with a default configuration.

A register is written as a word. The table shows the fields of each word.
"""
import argparse

import vorna

families = {"tessel": (vorna.tessel, vorna.tessel.configuration.TesselConfiguration, "tessel_config_to_event"),
            "ravik": (vorna.ravik, vorna.ravik.configuration.RavikConfiguration, "ravik_config_to_event")}
parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--family", choices=families, default="tessel")
parser.add_argument("--all", action="store_true", help="every register of the chip")
arguments = parser.parse_args()
family, Configuration, to_event = families[arguments.family]


def registers(configuration):
    """The contents of the registers, by block and number."""
    events = getattr(family.event, to_event)(configuration)
    writes = [event for event in events if isinstance(event, family.event.WriteRegisterValue)]
    return {(write.layer, write.index): family.event.describe_register(write) for write in writes}


configuration = Configuration()
layer = configuration.cnn_layers[3]
layer.dimensions.kernel_size = 5
layer.dimensions.stride = {"x": 2, "y": 4}
layer.dimensions.input_shape.feature_count = 300  # 10 bits, less 1: spread over two registers
layer.threshold_low = -2
layer.destinations[1].layer, layer.destinations[1].enable = 7, True
layer.destinations[1].feature_shift, layer.destinations[1].pooling = 100, 2
configuration.dvs_layer.on_channel = False  # the chip's bit says "off"
configuration.readout.threshold = 0x1234

before, after = registers(Configuration()), registers(configuration)
print("%-16s %2s  %-6s  %-24s %4s  %5s" % ("block", "nr", "word", "field", "bits", "value"))
for key, register in after.items():
    if register == before[key] and not arguments.all:
        continue
    head = "%-16s %2d  0x%02X  " % (register.block, register.number, register.data)
    for field in register.fields:
        high = field.low_bit + field.width - 1
        bits = "%d-%d" % (high, field.low_bit) if field.width > 1 else "%d" % high
        print("%s%-26s %4s  %5d" % (head, field.name, bits, field.value))
        head = " " * len(head)
