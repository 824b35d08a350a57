// A module of classes that use all that the binder offers, for test_probe.py: overloads, containers of classes, maps,
// converted members, read-only members, bases, enumerations, and what a wrong registration leads to.

#include <array>
#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "trovi/python/Local.h"

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
    const auto binding = [root](void (*bind)(py::module_&)) {
        return [root, bind] {
            auto m = py::reinterpret_borrow<py::module_>(root);
            bind(m);
        };
    };
    module.def("bind_nameless", binding([](py::module_& m) { Local<probe::Nameless>::bindClass(m); }));
    module.def("bind_below_a_class", binding([](py::module_& m) { Local<probe::Other>::bindClass(m); }));
}
