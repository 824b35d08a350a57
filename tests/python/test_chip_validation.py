"""The judgement of chip configurations as scripts see it; what each text is about is tested in C++."""
import pytest


class Family:
    def __init__(self, vorna, name):
        self.module = getattr(vorna, name)
        self.Configuration = getattr(self.module.configuration, name.capitalize() + "Configuration")
        self.validate = self.module.validate_configuration


@pytest.fixture(params=["tessel", "ravik"])
def family(vorna, request):
    return Family(vorna, request.param)


def feed(source, index, target, shift):
    destination = source.destinations[index]
    destination.layer, destination.enable, destination.feature_shift = target, True, shift


def test_a_default_configuration_is_valid(family):
    verdict = family.validate(family.Configuration())
    assert verdict == (True, "") and type(verdict) is tuple


def test_all_findings_come_at_once_and_in_order(family):
    configuration = family.Configuration()
    feed(configuration.cnn_layers[1], 0, 5, 0)
    feed(configuration.cnn_layers[2], 1, 5, 2)
    configuration.cnn_layers[5].dimensions.input_shape.feature_count = 2
    configuration.cnn_layers[5].threshold_low = 3
    configuration.readout.input_address_interpretation = 200
    before = repr(configuration)
    assert family.validate(configuration) == (False, (
        "Layer[5]\n"
        "\tGap between:\n"
        "\t\tLayer[1] destination[0] bottom: 0 top: 0 with\n"
        "\t\tLayer[2] destination[1] bottom: 2 top: 2\n"
        "Weights array must have dimensions [1][2][1][1]\n"
        "Weights kill bit array must have dimensions [1][2][1][1]\n"
        "Threshold low must be in [-32768,0]. Actual: 3\n"
        "Layer[5] is configured incorrectly ^^^^^^\n"
        "Input address interpretation must be in [0,3]. Actual: 200\n"))
    assert repr(configuration) == before


def test_a_network_becomes_valid_when_its_arrays_are_mended(family):
    configuration = family.Configuration()
    layer = configuration.cnn_layers[0]
    layer.dimensions.input_shape.feature_count = 3
    layer.dimensions.output_shape.feature_count = 5
    layer.dimensions.kernel_size = 3
    layer.dimensions.padding = {"x": 1, "y": 1}
    valid, text = family.validate(configuration)
    assert not valid and text.count("must have dimension") == 6 and "[5][3][3][3]" in text
    layer.weights = [[[[7] * 3] * 3] * 3] * 5
    layer.weights_kill_bit = [[[[True] * 3] * 3] * 3] * 5
    layer.biases, layer.biases_kill_bit = [1] * 5, [False] * 5
    layer.neurons_initial_value, layer.neurons_value_kill_bit = [[[0]]] * 5, [[[False]]] * 5
    assert family.validate(configuration) == (True, "")


def test_a_configuration_of_the_other_family_is_refused(vorna):
    for one, other in (("tessel", "ravik"), ("ravik", "tessel")):
        with pytest.raises(TypeError, match="validate_configuration"):
            Family(vorna, one).validate(Family(vorna, other).Configuration())


def test_the_function_tells_what_it_gives(family):
    assert "(verdict, text)" in family.validate.__doc__
