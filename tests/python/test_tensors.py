"""Members of array type: nested lists and buffers in, nested lists out, in this process and through a proxy."""
import array
import copy
import gc
import json
import pickle

import numpy
import pytest

from conftest import free_endpoints

RAGGED = "Input vector dimensions are not consistent."
DTYPES = {"weights": ("i1", 4), "kill": ("?", 4), "states": ("i2", 3), "biases": ("i2", 1), "bias_kill": ("?", 1)}
EXPECTED = {
    "weights": "list of list of list of list of int in [-128, 127], or an int8 array of 4 dimensions",
    "kill": "list of list of list of list of bool, or a bool array of 4 dimensions",
    "states": "list of list of list of int in [-32768, 32767], or an int16 array of 3 dimensions",
    "biases": "list of int in [-32768, 32767], or an int16 array of 1 dimension",
    "bias_kill": "list of bool, or a bool array of 1 dimension",
}


def values(member, shape=None, seed=1):
    dtype, rank = DTYPES[member]
    random = numpy.random.RandomState(seed)
    shape = shape or (3, 2, 5, 4)[:rank]
    return random.randint(0, 2, shape).astype("?") if dtype == "?" else random.randint(-100, 100, shape).astype(dtype)


@pytest.fixture
def local(probe):
    return probe.probe.Weights()


@pytest.fixture(scope="module")
def far(probe):
    """A proxy of such an object, through two nodes."""
    sender, receiver = free_endpoints()
    server = probe.Server(sender, receiver, 1)
    probe.open_client(receiver, sender, 700)
    yield probe.far.weights
    probe.close_client()
    server.close()


class ByFunctions:
    """Arrays as arguments and results, which is how a proxy reaches them."""

    def __init__(self, target):
        self.__dict__["target"] = target

    def __setattr__(self, member, value):
        getattr(self.target, "put_" + member)(value)

    def __getattr__(self, member):
        return getattr(self.target, "take_" + member)()


@pytest.fixture(params=["members", "functions", "far functions"])
def weights(request, probe):
    if request.param == "far functions":
        far = ByFunctions(request.getfixturevalue("far"))
        for member in DTYPES:
            setattr(far, member, getattr(probe.probe.Weights(), member))
        return far
    local = probe.probe.Weights()
    return local if request.param == "members" else ByFunctions(local)


@pytest.mark.parametrize("member", DTYPES)
def test_every_form_of_the_same_values_is_taken(weights, member):
    plain = values(member)
    flipped = plain[::-1, ..., ::-1] if plain.ndim > 1 else plain[::-1]
    wide = numpy.repeat(plain, 3, axis=-1)
    odd = numpy.frombuffer(b"x" + plain.tobytes(), "u1")[1:].view(plain.dtype).reshape(plain.shape)
    forms = {
        "lists": plain.tolist(),
        "tuples": tuple(plain.tolist()),
        "numpy's numbers": list(plain),
        "array": plain,
        "read-only": numpy.frombuffer(plain.tobytes(), plain.dtype).reshape(plain.shape),
        "Fortran order": numpy.asfortranarray(plain),
        "negative strides": numpy.ascontiguousarray(flipped)[::-1, ..., ::-1] if plain.ndim > 1 else flipped.copy()[::-1],
        "steps": wide[..., ::3],
        "transposed": numpy.ascontiguousarray(plain.T).T,
        "odd address": odd,
        "memoryview": memoryview(plain),
    }
    for what, form in forms.items():
        setattr(weights, member, values(member, (2,) * plain.ndim, seed=2))
        setattr(weights, member, form)
        assert getattr(weights, member) == plain.tolist(), what


@pytest.mark.parametrize("member, value, shown", [
    ("weights", numpy.broadcast_to(numpy.int8(7), (1, 2, 1, 2)), [[[[7, 7]], [[7, 7]]]]),
    ("weights", numpy.zeros((2, 0, 3, 3), "i1"), [[], []]),
    ("weights", [[], []], [[], []]),
    ("states", [], []),
    ("states", [[[-32768, 32767, True]]], [[[-32768, 32767, 1]]]),
    ("biases", array.array("h", [1, -2]), [1, -2]),
    ("biases", range(3), [0, 1, 2]),
    ("bias_kill", [1, 0, numpy.bool_(True), False], [True, False, True, False]),
    ("bias_kill", numpy.frombuffer(b"\x00\x02", "?"), [False, True]),
])
def test_other_values(weights, member, value, shown):
    setattr(weights, member, value)
    assert getattr(weights, member) == shown


@pytest.mark.parametrize("member, wrong", [
    ("weights", 3), ("weights", None), ("weights", [1]), ("weights", [[[[1.0]]]]), ("weights", [[[["1"]]]]), ("weights", ["ab"]),
    ("weights", [[[[128]]]]), ("weights", [[[[-129]]]]), ("weights", [[[[1 << 70]]]]), ("weights", [[[[[1]]]]]),
    ("weights", [[[[1], [2, "x"]]]]), ("weights", {}), ("weights", b"1234"),
    ("states", [[[32768]]]), ("bias_kill", [2]), ("bias_kill", [None]), ("bias_kill", [1.0]), ("biases", [numpy.float32(1.5)]),
])
def test_a_wrong_value_is_told_and_changes_nothing(local, member, wrong):
    setattr(local, member, values(member))
    with pytest.raises(TypeError) as caught:
        setattr(local, member, wrong)
    assert str(caught.value).endswith("probe.Weights.%s: expected %s, got %r (%s)" % (member, EXPECTED[member], wrong, type(wrong).__name__))
    assert getattr(local, member) == values(member).tolist()


@pytest.mark.parametrize("member, dtype, shape, given", [
    ("weights", "i2", (1, 1, 1, 2), "format 'h' and shape (1, 1, 1, 2)"),
    ("weights", "i1", (2, 2, 2), "format 'b' and shape (2, 2, 2)"),
    ("kill", "i1", (1, 1, 1, 1), "format 'b' and shape (1, 1, 1, 1)"),
    ("states", ">i2", (1, 1, 2), "format '>h' and shape (1, 1, 2)"),
    ("biases", "i8", (2,), "format 'l' and shape (2)"),
    ("biases", "i2,i2", (2,), "format 'T{h:f0:h:f1:}' and shape (2)"),
])
def test_a_buffer_of_another_type_or_rank_is_told(local, member, dtype, shape, given):
    setattr(local, member, values(member))
    wrong = numpy.zeros(shape, dtype)
    with pytest.raises(TypeError) as caught:
        setattr(local, member, wrong)
    assert str(caught.value).endswith("probe.Weights.%s: expected %s, got %r (numpy.ndarray of %s)" % (member, EXPECTED[member], wrong, given))
    assert getattr(local, member) == values(member).tolist()


@pytest.mark.parametrize("member, ragged", [
    ("weights", [[[[1]], [[1]]], [[[1]]]]), ("weights", [[[[1, 2]], [[1]]]]), ("weights", [[], [[[1]]]]), ("weights", [[[[1]]], []]),
    ("kill", [[[[True], [True, False]]]]), ("states", [[[1, 2], [3]]]), ("states", [[[1]], [[1], [2]]]),
])
def test_ragged_lists_are_told_and_change_nothing(weights, member, ragged):
    setattr(weights, member, values(member))
    with pytest.raises(ValueError) as caught:
        setattr(weights, member, ragged)
    assert str(caught.value) == RAGGED
    assert getattr(weights, member) == values(member).tolist()


def test_elements_that_change_their_list_while_it_is_read(local):
    class Clearing:
        def __init__(self, target):
            self.target = target

        def __index__(self):
            self.target.clear()
            return 1

    for depth in range(4):
        row = []
        nested = [[[row, row] for _ in range(2)] for _ in range(2)]
        cleared = [nested, nested[0], nested[0][0], row][depth]
        row += [Clearing(cleared), 2, 3]
        with pytest.raises(ValueError, match=RAGGED):
            local.weights = nested
    assert local.weights == [[[[0]]]]

    class Failing:
        def __len__(self):
            return 1

        def __getitem__(self, i):
            raise KeyError("mine")

    with pytest.raises(KeyError, match="mine"):
        local.biases = Failing()


def test_a_proxy_tells_what_it_cannot_send(far):
    with pytest.raises(TypeError) as caught:
        far.weights = [[[[300]]]]
    assert str(caught.value).endswith("weights: expected %s, got [[[[300]]]] (list)" % EXPECTED["weights"])
    with pytest.raises(ValueError, match=RAGGED):
        far.weights = [[[[1, 2], [3]]]]
    for wrong in ([[1]], numpy.zeros(3, "i1"), None):
        with pytest.raises(TypeError, match="incompatible function arguments"):
            far.put_biases(wrong)


def test_dicts_reach_arrays_and_roll_back(probe, capsys):
    network = probe.probe.Network()
    network.layers[1].biases = [1, 2]
    network.first = {"weights": numpy.ones((1, 2, 1, 1), "i1"), "biases": [5]}
    assert (network.first.weights, network.first.biases) == ([[[[1]], [[1]]]], [5])
    for wrong, error in (([[[1, 2], [3]]], ValueError), ([[["x"]]], TypeError)):
        with pytest.raises(error):
            network.first = {"weights": [[[[9]]]], "states": wrong}
    assert (network.first.weights, network.layers[1].biases, network.layers[0].biases) == ([[[[1]], [[1]]]], [1, 2], [0])
    assert "Failed reading dictionary member ' states '" in capsys.readouterr().out


def test_json_pickle_and_copies(probe, local, tmp_path):
    for member in DTYPES:
        setattr(local, member, values(member))
    path = tmp_path / "weights.json"
    local.to_json(str(path))
    shape = list(values("weights").shape)
    document = json.loads(path.read_text())
    assert document["value0"]["weights"] == {"dimensions": shape, "offsets": [40, 20, 4, 1], "values": values("weights").ravel().tolist()}
    assert list(document["value0"]) == ["weights", "kill", "states", "biases", "biasKill"]
    back = probe.probe.Weights()
    back.from_json(str(path))
    for other in (back, pickle.loads(pickle.dumps(local)), copy.deepcopy(local)):
        assert other == local
    back.weights = numpy.asarray(local.weights, "i1").reshape(-1, 1, 1, 1)
    assert back != local, "the shape counts"
    document["value0"]["states"]["dimensions"][0] += 1
    path.write_text(json.dumps(document))
    with pytest.raises(RuntimeError, match=r"An array of dimensions \[4, 2, 5\] has not 30 values."):
        back.from_json(str(path))
    assert back.states == values("states").tolist()


def test_signatures_and_docs(probe):
    weights = probe.probe.Weights.weights
    assert weights.__doc__ == EXPECTED["weights"] + ": one for each pair"
    assert weights.fget.__doc__.strip().lower().endswith("-> list[list[list[list[int]]]]")


def test_nested_lists_reach_into_the_array(local):
    local.weights = values("weights", (2, 2, 2, 3))
    expected = values("weights", (2, 2, 2, 3)).tolist()
    for listed in (expected, local.weights):
        listed[0][0][1][2] = 5
        listed[1][1][-2][0] = numpy.int64(-6)
        listed[1][0] = [[1, 2, 3], [4, 5, 6]]
        listed.append(copy.deepcopy(listed[0]))
        listed[2][0].reverse()
    assert local.weights == listed == expected
    row = listed[1][1]
    for change, error, text in (("[0][0][1][2] = 300", TypeError, "expected .*int in .*300"), ("[0][0].append([1, 2, 3])", ValueError, RAGGED),
                                ("[0][0][1][3] = 1", IndexError, "assignment index out of range"), ("[0] = [[[1]]]", ValueError, RAGGED)):
        with pytest.raises(error, match=text):
            exec("listed" + change)
        assert local.weights == listed == expected
    listed.insert(0, listed[0])
    with pytest.raises(RuntimeError, match="Weights.weights no more, since a list around it changed: read the member again"):
        row[0][0] = 1
    stale = local.weights
    local.weights = [[[[1]]]]
    with pytest.raises(IndexError, match="has no such list any more|out of range"):
        stale[1][1][0][0] = 1
    stale[0][0][0][0] = 7
    assert local.weights == [[[[7]]]] and stale[0][0][0] == [7]


def test_a_list_whose_member_a_subclass_hides_changes_nothing(probe):
    kept = [1]
    hiding = type("Hiding", (probe.probe.Weights,), {"biases": property(lambda self: kept, lambda self, value: None)})
    listed = probe.probe.Weights.biases.fget(hiding())
    with pytest.raises(TypeError, match="Weights.biases: the object's class gives something else under this name"):
        listed.append(2)
    assert kept == [1] and listed == [0]


def test_a_numpy_array_refers_to_the_elements(probe):
    network = probe.probe.Network(layers=[probe.probe.Weights(weights=values("weights")), probe.probe.Weights()])
    layer = network.layers[0]
    view = layer.weights_array()
    assert view.dtype == numpy.int8 and view.flags.writeable and view.tolist() == layer.weights == values("weights").tolist()
    view[1, 1, 1, 1] = 99
    layer.weights[0][0][0][0] = 98
    assert layer.weights[1][1][1][1] == 99 and view[0, 0, 0, 0] == 98
    layer.weights = values("weights", seed=2)
    assert view.tolist() == layer.weights == values("weights", seed=2).tolist(), "the same shape stays in place"
    replacing = {"another shape": lambda: setattr(layer, "weights", [[[[1]]]]), "the object": lambda: setattr(network, "first", probe.probe.Weights()),
                 "the element": lambda: network.layers.__setitem__(0, probe.probe.Weights())}
    for what, replace in replacing.items():
        network.layers[0], network.first = {"weights": values("weights")}, {"weights": values("weights")}
        owner = network.first if what == "the object" else network.layers[0]
        view = owner.weights_array()
        replace()
        view[...] = 3
        owner = network.first if what == "the object" else network.layers[0]
        assert owner.weights != view.tolist() and (view == 3).all() and view.shape == (3, 2, 5, 4), what
    assert probe.probe.Weights().kill == [[[[False]]]] and type(probe.probe.Weights().kill[0][0][0][0]) is bool
    view = probe.probe.Weights(states=values("states")).states_array()
    gc.collect()
    assert (view == values("states")).all(), "it keeps its owner"
    bits = probe.probe.Weights(kill=values("kill")).kill_array()
    assert (bits == values("kill")).all() and bits.dtype == bool and not bits.flags.writeable, "bits are packed"
    assert probe.probe.Weights(biases=[]).biases_array().shape == (0,)
