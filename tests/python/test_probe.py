"""What the binder makes of descriptions, on the classes of probe/Probe.cpp."""
import os
import sys

import pytest


@pytest.fixture(scope="module")
def probe():
    import vorna
    sys.path.append(os.path.join(os.path.dirname(vorna.__file__), "..", "tests", "python"))
    import binder_probe
    return binder_probe


@pytest.fixture
def derived(probe):
    return probe.probe.Derived()


def test_overloads_are_chosen_by_number_and_type(derived):
    assert (derived.sum(2), derived.sum(2, 3), derived.sum("x"), derived.sum(b=5, a=1)) == (2, 5, "x", 6)
    for wrong in ((), (1, 2, 3), (None,), (1, "x")):
        with pytest.raises(TypeError, match="incompatible function arguments"):
            derived.sum(*wrong)
    doc = derived.sum.__doc__
    for line in ("(self: binder_probe.probe.Derived, a: int) -> int", "a: int, b: int) -> int", "a: str) -> str", "Two numbers."):
        assert line in doc


def test_elements_of_members_are_references(probe, derived):
    derived.fixed[1].value = 5
    assert derived.fixed[1].value == 5
    derived.list = [probe.probe.Leaf(), probe.probe.Leaf(value=3)]
    derived.list[0].value = 4
    derived.named = {"a": probe.probe.Leaf()}
    derived.named["a"].value = 6
    assert ([e.value for e in derived.list], derived.named["a"].value) == ([4, 3], 6)
    leaf = derived.first()
    leaf.value = 8
    assert derived.fixed[0].value == 8
    del derived
    assert leaf.value == 8, "it keeps its owner"


def test_a_dict_reaches_into_classes_and_rolls_back(probe, derived, capsys):
    derived.leaf = {"value": 3, "colour": probe.probe.Colour.darkBlue}
    assert (derived.leaf.value, derived.leaf.colour) == (3, probe.probe.Colour.darkBlue)
    with pytest.raises(TypeError, match=r"probe.Leaf.colour: expected probe.Colour \(Red, darkBlue\), got 7 \(int\)"):
        derived.leaf = {"value": 4, "colour": 7}
    assert derived.leaf.value == 3
    assert capsys.readouterr().out == \
        "Failed reading dictionary member ' colour ' Value could not be casted to the expected type ( probe::Colour )  nor to a sub-dictionary.\n"


@pytest.mark.parametrize("member, wrong, text", [
    ("fixed", [], "expected list of 3 probe.Leaf, or a dict of its members, got [] (list)"),
    ("numbers", [1, 256], "expected list of int in [0, 255], got [1, 256] (list)"),
    ("leaf", 3, "expected probe.Leaf, or a dict of its members, got 3 (int)"),
    ("leaf", None, "expected probe.Leaf, or a dict of its members, got None (NoneType)"),
])
def test_wrong_values_of_compound_members(derived, member, wrong, text):
    with pytest.raises(TypeError) as caught:
        setattr(derived, member, wrong)
    assert str(caught.value) == "probe.Derived.%s: %s" % (member, text)


def test_a_converted_member_shows_its_other_form(derived):
    assert derived.grid == [1, 2, 3, 4]
    derived.grid = [5, 6]
    assert derived.grid == [5, 6]
    with pytest.raises(TypeError, match="expected list of int in"):
        derived.grid = [[1]]
    with pytest.raises(AttributeError):
        derived.constant = 1
    assert derived.constant == 7


def test_names_bases_and_enumerations(probe, derived):
    assert isinstance(derived, probe.probe.Base) and derived.who() == "base"
    assert derived.odd_name_x == 0
    assert probe.probe.tools.twice_the_value(value=4) == 8
    colour = probe.probe.Colour
    assert (int(colour.Red), int(colour.darkBlue), colour(2)) == (1, 2, colour.darkBlue)
    assert list(colour.__members__) == ["Red", "darkBlue"]
    assert probe.times_bound == 1


@pytest.mark.parametrize("function, kind, text", [
    ("register_twice", RuntimeError, 'Binding function for "trovi_bind_local_type_twice" was already registered!\n'),
    ("bind_nameless", ValueError, "is registered with an empty name! Ensure that the correct trovi bindings are included in the "
                                  "module source. Verify the class registration and recompile the module!"),
    ("bind_below_a_class", RuntimeError, "An invalid namespace has been bound at compile time!"),
])
def test_wrong_registrations(probe, function, kind, text):
    with pytest.raises(kind) as caught:
        getattr(probe, function)()
    assert str(caught.value).endswith(text)
