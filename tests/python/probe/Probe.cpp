// A module of classes that use all that the binder offers, for test_probe.py: overloads, containers of classes, maps,
// converted members, read-only members, bases, enumerations, and what a wrong registration leads to.

#include <array>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "trovi/TroviNode.h"
#include "trovi/python/Local.h"
#include "trovi/python/PythonNode.h"
#include "trovi/python/PythonNodeSingleton.h"
#include "trovi/python/Remote.h"
#include "util/tensor/Array.h"

namespace probe {

enum class Colour { Red = 1, darkBlue = 2 };

struct Leaf {
    int value = 0;
    Colour colour = Colour::Red;
    friend bool operator==(const Leaf&, const Leaf&) = default;
};

struct Base {
    virtual ~Base() = default;
    std::string who() const { return "base"; }
};

struct Derived : Base {
    Leaf leaf;
    std::array<Leaf, 3> fixed;
    std::vector<Leaf> list;
    std::map<std::string, Leaf> named;
    std::vector<std::uint8_t> numbers;
    std::vector<std::vector<int>> grid = {{1, 2}, {3, 4}};
    int constant = 7;
    int _oddName = 0;

    int sum(int a) const { return a; }
    int sum(int a, int b) const { return a + b; }
    std::string sum(const std::string& a) const { return a; }
    Leaf& first() { return fixed[0]; }
};

// Python sees the grid as one flat list.
void setFlat(Derived& object, std::vector<int> flat) { object.grid = {std::move(flat)}; }
std::vector<int> flat(const Derived& object)
{
    std::vector<int> all;
    for (const auto& row : object.grid)
        all.insert(all.end(), row.begin(), row.end());
    return all;
}

// No member in its list; the field is a part of the value all the same.
struct Empty {
    std::uint32_t timestamp = 0;
    void stamp(std::uint32_t value) { timestamp = value; }
    friend bool operator==(const Empty&, const Empty&) = default;
};

// Elements of elements, in lists and in dicts, inside a member that is replaced as a whole.
struct Tree {
    int id = 0;
    std::vector<Derived> list;
    std::map<std::string, Derived> named;
    std::array<std::vector<Leaf>, 2> pair;
    std::vector<Leaf>& leaves() { return pair[0]; }
};
struct Forest {
    Tree tree;
    std::variant<int, Leaf> choice = Leaf{5, Colour::Red};
};

struct Weights {
    util::tensor::Array4Int8 weights;
    util::tensor::Array4Bool kill;
    util::tensor::Array3Int16 states;
    util::tensor::Array1Int16 biases;
    util::tensor::Array1Bool biasKill;

    template <auto Field>
    void put(const std::remove_cvref_t<decltype(std::declval<Weights>().*Field)>& array)
    {
        this->*Field = array;
    }
    template <auto Field>
    const auto& take() const
    {
        return this->*Field;
    }
    friend bool operator==(const Weights&, const Weights&) = default;
};
struct Network {
    Weights first;
    std::array<Weights, 2> layers;
};

struct Nameless {};
struct Other {};

} // namespace probe

namespace trovi {

template <>
constexpr auto registerMembers<probe::Leaf>()
{
    return members(member("value", &probe::Leaf::value, "a number"),
                   member("colour", &probe::Leaf::colour, "a colour"));
}

template <>
constexpr auto registerMemberFunctions<probe::Base>()
{
    return functions();
}

template <>
struct RegisterBase<probe::Derived> {
    using type = probe::Base;
};

template <>
constexpr auto registerMembers<probe::Derived>()
{
    using probe::Derived;
    return members(member("leaf", &Derived::leaf), member("fixed", &Derived::fixed), member("list", &Derived::list),
                   member("named", &Derived::named), member("numbers", &Derived::numbers),
                   convertedMember("grid", &Derived::grid, &probe::setFlat, &probe::flat),
                   readOnlyMember("constant", &Derived::constant), member("odd_name__x", &Derived::_oddName));
}

template <>
constexpr auto registerMemberFunctions<probe::Derived>()
{
    using probe::Derived;
    return functions(
        function("sum", static_cast<int (Derived::*)(int) const>(&Derived::sum), "One number.", "a"),
        function("sum", static_cast<int (Derived::*)(int, int) const>(&Derived::sum), "Two numbers.", "a, b"),
        function("sum", static_cast<std::string (Derived::*)(const std::string&) const>(&Derived::sum), "A text.", "a"),
        function("first", &Derived::first, "A reference into the object."),
        function("who", &Derived::who, "A function of the base."));
}

template <>
constexpr auto registerMembers<probe::Empty>()
{
    return members();
}
template <>
constexpr auto registerMemberFunctions<probe::Empty>()
{
    return functions(function("stamp", &probe::Empty::stamp, "Sets the field.", "value"));
}

template <>
constexpr auto registerMembers<probe::Tree>()
{
    using probe::Tree;
    return members(member("id", &Tree::id), member("list", &Tree::list), member("named", &Tree::named),
                   member("pair", &Tree::pair));
}
template <>
constexpr auto registerMemberFunctions<probe::Tree>()
{
    return functions(function("leaves", &probe::Tree::leaves, "The first of the pair."));
}
template <>
constexpr auto registerMembers<probe::Forest>()
{
    return members(member("tree", &probe::Forest::tree), member("choice", &probe::Forest::choice));
}

template <>
constexpr auto registerMembers<probe::Weights>()
{
    using probe::Weights;
    return members(
        util::tensor::member<&Weights::weights>("weights", "one for each pair"),
        util::tensor::member<&Weights::kill>("kill", ""), util::tensor::member<&Weights::states>("states", ""),
        util::tensor::member<&Weights::biases>("biases", ""), util::tensor::member<&Weights::biasKill>("biasKill", ""));
}
template <>
constexpr auto registerMemberFunctions<probe::Weights>()
{
    using probe::Weights;
#define PUT_AND_TAKE(Name, field)                                              \
    function("put" Name, &Weights::put<&Weights::field>, "Sets it.", "array"), \
        function("take" Name, &Weights::take<&Weights::field>, "Gives it.")
    return functions(PUT_AND_TAKE("Weights", weights), PUT_AND_TAKE("Kill", kill), PUT_AND_TAKE("States", states),
                     PUT_AND_TAKE("Biases", biases), PUT_AND_TAKE("BiasKill", biasKill));
#undef PUT_AND_TAKE
}
template <>
constexpr auto registerMembers<probe::Network>()
{
    return members(member("first", &probe::Network::first), member("layers", &probe::Network::layers));
}

template <>
struct RegisterImplementation<probe::Nameless> {
    static std::string registerName() { return ""; }
    static constexpr auto registerMembers() { return members(); }
};

template <>
struct RegisterImplementation<probe::Other> {
    static std::string registerName() { return "probe::Leaf::Other"; }
    static constexpr auto registerMembers() { return members(); }
};

} // namespace trovi

namespace {

namespace py = pybind11;
using trovi::python::Binder;
using trovi::python::Local;

int bound = 0;

VORNA_BIND_ENUM(probe::Colour)
VORNA_BIND_LOCAL(probe::Leaf)
VORNA_BIND_LOCAL(probe::Base)
VORNA_BIND_LOCAL_WITH(probe::Derived, [](auto&) { ++bound; })

VORNA_BIND_LOCAL(probe::Empty)
VORNA_BIND_LOCAL(probe::Tree)
VORNA_BIND_LOCAL(probe::Forest)
VORNA_BIND_LOCAL(probe::Weights)
VORNA_BIND_LOCAL(probe::Network)
VORNA_BIND_REMOTE(probe::Weights)

// A node with one object of the class in its store.
using Server = trovi::TroviNode<trovi::Puller, trovi::Publisher>;

int twice(int value) { return 2 * value; }
VORNA_BIND_FREE_FUNCTION("probe::tools::twiceTheValue", &twice, "Twice the value.", "value")

} // namespace

PYBIND11_MODULE(binder_probe, module)
{
    Binder::getInstance().bindModule(module);
    Local<probe::Derived>::bindClass(module); // known already: nothing happens
    module.attr("times_bound") = bound;
    module.def("register_twice", [] {
        Binder::getInstance().addBindingFunction("trovi_bind_local_type_twice", [](py::module_&) {});
        Binder::getInstance().addBindingFunction("trovi_bind_local_type_twice", [](py::module_&) {});
    });
    const py::handle root = module;
    py::class_<Server>(module, "Server")
        .def(py::init([](const std::string& sender, const std::string& receiver, std::uint64_t id) {
            auto made = std::make_unique<Server>(sender, receiver, id);
            made->store().insert("weights", std::make_unique<probe::Weights>());
            return made;
        }))
        .def("close", &Server::stop, py::call_guard<trovi::python::GilRelease>());
    module.def("open_client", [root](const std::string& sender, const std::string& receiver, std::uint64_t id) {
        using namespace trovi::python;
        PythonNodeSingleton::replace(std::make_shared<PythonNode>(sender, receiver, id, root));
        PythonNodeSingleton::getInstance()->openRemoteNode(1, "far");
    });
    module.def("close_client", [] { trovi::python::PythonNodeSingleton::replace(nullptr); });
    const auto binding = [root](void (*bind)(py::module_&)) {
        return [root, bind] {
            auto m = py::reinterpret_borrow<py::module_>(root);
            bind(m);
        };
    };
    module.def("bind_nameless", binding([](py::module_& m) { Local<probe::Nameless>::bindClass(m); }));
    module.def("bind_below_a_class", binding([](py::module_& m) { Local<probe::Other>::bindClass(m); }));
}
