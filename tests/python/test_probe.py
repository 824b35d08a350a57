"""What the binder makes of descriptions, on the classes of probe/Probe.cpp."""
import copy
import decimal
import fractions
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
    choice = forest.choice
    forest.choice = 3
    assert (choice.value, forest.choice) == (5, 3), "an alternative is a copy"


def test_an_array_of_classes_is_set_whole_or_by_element(probe, derived):
    third = derived.fixed[2]
    derived.fixed = leaves(probe, 1, 2, 3)
    assert third.value == 3, "elements of a fixed array stay where they are"
    third.value = 9
    assert [e.value for e in derived.fixed] == [1, 2, 9]
    for wrong in (leaves(probe, 1, 2), leaves(probe, 1, 2, 3, 4), [1, 2, 3], []):
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


def shown(list_of_leaves):
    return [e.value for e in list_of_leaves]


@pytest.mark.parametrize("change", [
    "l[0] = 9", "l[-1] = 9", "del l[1]", "l[1:] = [7, 8, 9]", "l[::2] = [5, 6]", "del l[::2]", "l.append(4)", "l.extend(l)",
    "l.insert(1, 8)", "l.pop()", "l.pop(0)", "l.remove(1)", "l.reverse()", "l.sort()", "l.sort(reverse=True, key=lambda x: x)",
    "l.clear()", "l += [6]", "l *= 2", "l[0], l[1] = l[1], l[0]"])
def test_a_list_changes_its_member_as_a_plain_list(probe, derived, change):
    for owner, member in ((derived, "numbers"), (derived, "grid"), (probe.probe.Weights(), "biases")):
        setattr(owner, member, [3, 1, 2])
        plain, listed, other = [3, 1, 2], getattr(owner, member), getattr(owner, member)
        exec(change, {"l": plain})
        exec(change, {"l": listed})
        assert getattr(owner, member) == listed == plain and isinstance(listed, list) and repr(listed) == repr(plain)
        assert other == [3, 1, 2], "it shows what was read"
        other.append(5)
        assert getattr(owner, member) == other == plain + [5], "and changes what is there"
        for wrong in ("l.append('x')", "l[0] = 2.5", "l[:] = [None]", "l[99] = 1", "l.remove(99)"):
            with pytest.raises((TypeError, IndexError, ValueError)):
                exec(wrong, {"l": other})
            assert getattr(owner, member) == other == plain + [5]


@pytest.mark.parametrize("change, error, text", [
    ("derived.numbers = [1, 256]", TypeError, "probe.Derived.numbers: expected list of int in [0, 255], got [1, 256] (list)"),
    ("derived.leaf = None", TypeError, "probe.Derived.leaf: expected probe.Leaf, or a dict of its members, got None (NoneType)"),
    ("fixed.append(leaf)", TypeError, "probe.Derived.fixed: it always has 3 elements; they can be replaced, but none added or removed"),
    ("del fixed[0]", TypeError, "it always has 3 elements"), ("fixed *= 2", TypeError, "it always has 3 elements"),
    ("fixed[1:] = [leaf]", TypeError, "it always has 3 elements"), ("fixed.pop()", TypeError, "it always has 3 elements"),
    ("fixed[1] = 3", TypeError, "probe.Derived.fixed[1]: expected probe.Leaf, or a dict of its members, got 3 (int)"),
    ("fixed[1] = {'value': 'x'}", TypeError, "probe.Leaf.value: expected int in [-2147483648, 2147483647], got 'x' (str)"),
    ("fixed[:2] = [leaf, None]", TypeError, "probe.Derived.fixed[1]: expected probe.Leaf, or a dict of its members, got None (NoneType)"),
    ("fixed[3] = leaf", IndexError, "probe.Derived.fixed: assignment index out of range, it has 3 elements"),
    ("fixed.__init__([])", TypeError, "a member's list is made by reading the member"),
    ("type(fixed)()", TypeError, "a member's list is made by reading the member"),
])
def test_a_list_refuses_what_its_member_cannot_do(probe, derived, capsys, change, error, text):
    derived.fixed = leaves(probe, 1, 2, 3)
    fixed = derived.fixed
    with pytest.raises(error) as caught:
        exec(change, {"fixed": fixed, "leaf": probe.probe.Leaf(), "derived": derived})
    assert text in str(caught.value) and shown(derived.fixed) == shown(fixed) == [1, 2, 3]


def test_elements_are_replaced_as_in_any_list(probe, derived):
    derived.list, derived.fixed = leaves(probe, 1, 2, 3), leaves(probe, 1, 2, 3)
    for name in ("list", "fixed"):
        listed, other = getattr(derived, name), getattr(derived, name)
        first, second = listed[:2]
        listed[0], listed[2] = listed[2], listed[0]
        assert shown(getattr(derived, name)) == shown(listed) == shown(other) == [3, 2, 1], name
        first.value = 7
        other[0].value, second.value = 8, 9
        assert shown(getattr(derived, name)) == [8, 9, 1], "what was replaced is part of nothing any more, the rest is"
        listed[1] = {"colour": probe.probe.Colour.darkBlue}
        assert (second.value, second.colour) == (9, probe.probe.Colour.darkBlue), "a dict changes the element"
        listed[1] = listed[1]
        second.value = 10
        assert shown(getattr(derived, name)) == [8, 10, 1]
        listed.sort(key=lambda e: e.value)
        listed[-1].value = 11
        assert shown(getattr(derived, name)) == [1, 8, 11]
        assert [type(c) for c in (listed[:], copy.copy(listed), copy.deepcopy(listed), listed + [])] == [list] * 4
    del derived
    gc.collect()
    first.value, listed[0].value = 1, 2
    assert pickle.loads(pickle.dumps(listed)) == listed


def test_inner_lists_change_their_place(probe, forest):
    pair = forest.tree.pair
    pair[1].append(probe.probe.Leaf(value=6))
    pair[0][0] = {"value": 7}
    inner = pair[0]
    assert [shown(e) for e in forest.tree.pair] == [[7], [5, 6]]
    pair[0] = leaves(probe, 1, 2)
    with pytest.raises(RuntimeError, match="part of probe.Tree.pair no more"):
        inner.append(probe.probe.Leaf())
    assert [shown(e) for e in forest.tree.pair] == [[1, 2], [5, 6]]


def test_an_object_without_init_is_refused(probe, derived):
    class Silent(probe.probe.Leaf):
        def __init__(self):
            pass

    with pytest.raises(TypeError, match="__init__"):
        Silent()
    for cls in (probe.probe.Leaf, Silent, probe.probe.Derived, probe.probe.Colour):
        unmade = cls.__new__(cls)
        for use in (repr, str, lambda o: o == o and o.leaf, copy.copy, copy.deepcopy, pickle.dumps, lambda o: o.value, lambda o: o.sum(1),
                    lambda o: setattr(o, "value", 1), lambda o: setattr(derived, "leaf", o), lambda o: setattr(derived, "fixed", [o] * 3),
                    lambda o: derived.fixed.__setitem__(0, o), int):
            with pytest.raises((TypeError, AttributeError)):
                use(unmade)
    made = probe.probe.Leaf.__new__(probe.probe.Leaf)
    made.__init__(value=3)
    assert made.value == 3


def test_only_what_is_an_integer_is_one(probe, derived):
    class Number:
        def __index__(self):
            return 4

    take, weights = probe.probe.tools.twice_the_value, probe.probe.Weights()
    for wrong in (decimal.Decimal(2), fractions.Fraction(7, 2), 2.0, "2", None):
        for use in (lambda: take(wrong), lambda: derived.sum(wrong, wrong), lambda: setattr(derived, "numbers", [wrong]), lambda: probe.probe.Colour(wrong),
                    lambda: setattr(derived.leaf, "value", wrong), lambda: setattr(weights, "biases", [wrong]), lambda: derived.numbers.append(wrong)):
            with pytest.raises(TypeError, match="incompatible|expected .*int in .*got"):
                use()
    derived.leaf.value, derived.numbers = Number(), [Number(), True]
    assert (take(Number()), derived.leaf.value, derived.numbers) == (8, 4, [4, 1])


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
