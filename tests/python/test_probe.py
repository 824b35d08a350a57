"""What the binder makes of descriptions, on the classes of probe/Probe.cpp."""
import copy
import gc
import json
import pickle

import pytest


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


def leaves(probe, *values):
    return [probe.probe.Leaf(value=v) for v in values]


@pytest.fixture
def forest(probe):
    forest = probe.probe.Forest()
    derived = probe.probe.Derived(list=leaves(probe, 1, 2), named={"a": leaves(probe, 3)[0]})
    forest.tree = probe.probe.Tree(id=1, list=[derived, derived], named={"k": derived},
                                   pair=[leaves(probe, 4), leaves(probe, 5)])
    return forest


def grown(probe, path):
    """How a script may replace what holds the elements: each takes the forest."""
    derived = probe.probe.Derived()
    tree = probe.probe.Tree(list=[derived] * 50, named={str(i): derived for i in range(50)},
                            pair=[leaves(probe, *range(50))] * 2)
    whole = probe.probe.Forest(tree=tree)
    whole.to_json(str(path))

    def by_members(forest):
        forest.tree.list, forest.tree.named, forest.tree.pair = tree.list, tree.named, tree.pair

    def by_a_dict_that_fails(forest):
        with pytest.raises(TypeError):
            forest.tree = {"list": [], "named": {}, "pair": [[], []], "id": 2}  # read in the order of the members...
            forest.tree = {"list": [derived] * 9, "pair": 3}                    # ... and rolled back

    def from_a_bad_file(forest):
        document = json.loads(path.read_text())
        del document["value0"]["tree"]["pair"]
        path.write_text(json.dumps(document))
        with pytest.raises(RuntimeError, match="pair"):
            forest.from_json(str(path))

    return {
        "members": by_members,
        "whole": lambda forest: setattr(forest, "tree", tree),
        "same size": lambda forest: setattr(forest.tree, "list", [derived, derived]),
        "inner": lambda forest: forest.tree.list[0].__setattr__("list", []),
        "dict": lambda forest: setattr(forest, "tree", {"list": [], "named": {}, "pair": [[], []]}),
        "dict that fails": by_a_dict_that_fails,
        "file": lambda forest: forest.from_json(str(path)),
        "bad file": from_a_bad_file,
        "nothing": lambda forest: None,
    }


@pytest.mark.parametrize("way", ["members", "whole", "same size", "inner", "dict", "dict that fails", "file", "bad file", "nothing"])
def test_an_element_outlives_what_replaces_its_list(probe, forest, way, tmp_path, capsys):
    replace = grown(probe, tmp_path / "forest.json")[way]
    tree = forest.tree
    got = [tree.list[0].list[1], tree.list[1].named["a"], tree.named["k"].list[0], tree.pair[0][0], tree.pair[1][0],
           tree.leaves()[0]]
    outer = tree.list[1]
    replace(forest)
    for round in range(3):
        assert [leaf.value for leaf in got] == [2 + round, 3 + round, 1 + round, 4 + round, 5 + round, 4 + round]
        for leaf in got[:-1]:
            leaf.value += 1
        gc.collect()
    outer.list = leaves(probe, 7, 8, 9)
    assert [leaf.value for leaf in outer.list] == [7, 8, 9]
    if way in ("members", "whole", "file"):
        assert len(tree.list) == len(tree.named) == 50 and [leaf.value for leaf in tree.leaves()] == list(range(50))
    if way == "bad file":
        assert len(tree.list) == 50 and [leaf.value for leaf in tree.pair[0]] == [4], "what comes behind the fault stays"
    del forest, tree, outer
    gc.collect()
    assert [leaf.value for leaf in got] == [5, 6, 4, 7, 8, 7]


def test_an_element_is_one_object_and_writes_through(probe, forest):
    tree = forest.tree
    assert tree.list[0] is tree.list[0]
    leaf = tree.list[0].list[1]
    leaf.value = 40
    assert forest.tree.list[0].list[1].value == 40
    tree.list[0].list = [leaf] * 3
    assert [e.value for e in tree.list[0].list] == [40] * 3
    leaf.value = 41
    assert [e.value for e in tree.list[0].list] == [40] * 3, "it is part of nothing any more"
    tree.list[0].list[2].value = 42
    assert [e.value for e in tree.list[0].list] == [40, 40, 42]


def test_an_alternative_is_a_copy(forest):
    choice = forest.choice
    forest.choice = 3
    assert (choice.value, forest.choice) == (5, 3)


def test_an_array_of_classes_is_set_whole_or_by_element(probe, derived):
    third = derived.fixed[2]
    derived.fixed = leaves(probe, 1, 2, 3)
    assert third.value == 3, "elements of a fixed array stay where they are"
    third.value = 9
    assert [e.value for e in derived.fixed] == [1, 2, 9]
    for wrong in (leaves(probe, 1, 2), leaves(probe, 1, 2, 3, 4), [1, 2, 3]):
        with pytest.raises(TypeError, match="probe.Derived.fixed: expected list of 3 probe.Leaf, or a dict of its members, got "):
            derived.fixed = wrong
    assert [e.value for e in derived.fixed] == [1, 2, 9]


def test_dicts_in_a_list_reach_into_its_elements(probe, derived, capsys):
    derived.fixed = leaves(probe, 1, 2, 3)
    second = derived.fixed[1]
    derived.fixed = [{"value": 7}, {}, probe.probe.Leaf(value=8)]
    assert [e.value for e in derived.fixed] == [7, 2, 8] and second.value == 2
    for wrong, text in (([{"value": 1}, 2, {}], r"probe.Derived.fixed\[1\]: expected probe.Leaf, or a dict of its members, got 2"),
                        ([{"value": 1}, {"value": "x"}, {}], "probe.Leaf.value: expected int"),
                        ([{}, {}], "probe.Derived.fixed: expected list of 3")):
        with pytest.raises(TypeError, match=text):
            derived.fixed = wrong
        assert [e.value for e in derived.fixed] == [7, 2, 8]


def test_a_class_without_members_is_a_whole_class(probe, tmp_path):
    empty, stamped = probe.probe.Empty(), probe.probe.Empty()
    assert empty == stamped and repr(empty) == "vorna.probe.Empty()"
    stamped.stamp(3)
    assert empty != stamped and copy.copy(stamped) == stamped
    path = tmp_path / "empty.json"
    stamped.to_json(str(path))
    assert json.loads(path.read_text()) == {"value0": {}}
    stamped.from_json(str(path))
    assert empty != stamped, "the field has no form"
    assert pickle.loads(pickle.dumps(stamped)) == empty


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
