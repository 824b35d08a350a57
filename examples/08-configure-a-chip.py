"""Builds a network of two layers for a chip, validates it, and prints the faults of a broken one.

    camera, 128 x 128, pooled to 2 x 64 x 64 --> layer 0 --> 8 x 32 x 32, pooled to 8 x 16 x 16 --> layer 3 --> 10 x 1 x 1

Nothing is sent to a chip. docs/guide/chip-configuration.md explains the terms.
"""
import random

import vorna

family = vorna.tessel  # vorna.ravik has the same names, except RavikConfiguration
Destination = family.configuration.CNNLayerDestination


def shape(layer, inputs, outputs, kernel, stride=1, padding=0):
    """Sets a layer's dimensions from (features, columns, rows), and arrays of these dimensions: noise and zeros."""
    layer.dimensions = {"kernel_size": kernel, "stride": {"x": stride, "y": stride}, "padding": {"x": padding, "y": padding},
                        "input_shape": {"feature_count": inputs[0], "size": {"x": inputs[1], "y": inputs[2]}},
                        "output_shape": {"feature_count": outputs[0], "size": {"x": outputs[1], "y": outputs[2]}}}
    features, channels, columns, rows = layer.dimensions.get_weights_array_dimensions()
    layer.weights = [[[[random.randint(-20, 20) for _ in range(rows)] for _ in range(columns)] for _ in range(channels)]
                     for _ in range(features)]
    layer.weights_kill_bit = [[[[False] * rows for _ in range(columns)] for _ in range(channels)] for _ in range(features)]
    layer.biases, layer.biases_kill_bit = [0] * features, [False] * features
    features, columns, rows = layer.dimensions.get_neuron_states_array_dimensions()
    layer.neurons_initial_value = [[[0] * rows for _ in range(columns)] for _ in range(features)]
    layer.neurons_value_kill_bit = [[[False] * rows for _ in range(columns)] for _ in range(features)]


def two_layers():
    configuration = family.configuration.TesselConfiguration()
    camera, first, second = configuration.dvs_layer, configuration.cnn_layers[0], configuration.cnn_layers[3]
    camera.pooling = {"x": 2, "y": 2}  # of the whole sensor, the default of `origin` and `cut`
    camera.destinations[0].layer, camera.destinations[0].enable = 0, True

    shape(first, inputs=(2, 64, 64), outputs=(8, 32, 32), kernel=3, stride=2, padding=1)
    first.threshold_high, first.threshold_low = 50, -50
    first.destinations = [Destination(layer=3, enable=True, pooling=2), Destination()]

    shape(second, inputs=(8, 16, 16), outputs=(10, 1, 1), kernel=16)
    second.threshold_high, second.threshold_low = 200, -200
    second.monitor_enable = True  # its spikes leave the chip
    return configuration


configuration = two_layers()
valid, findings = family.validate_configuration(configuration)
print("as built: valid =", valid)
assert findings == ""
events = family.event.tessel_config_to_event(configuration)
print("%d events write it to a chip" % len(events))

broken = two_layers()
broken.cnn_layers[0].destinations[0].pooling = 1  # 32 x 32 arrive where 16 x 16 are expected
broken.cnn_layers[0].threshold_low = 50  # must be 0 or less
broken.cnn_layers[3].biases = [0] * 9  # for ten features
broken.dvs_layer.merge = True  # one feature arrives where two are expected
valid, findings = family.validate_configuration(broken)
print("broken: valid = %s\n" % valid)
print(findings, end="")
