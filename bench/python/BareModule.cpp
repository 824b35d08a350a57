// The floor of the import time: a module by pybind11's own means, with as many classes, properties and methods as vorna
// has, and nothing else. bench/python/import_time.py passes the numbers at compile time.

#include <string>
#include <utility>

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace {

template <std::size_t N>
struct Bare {
    int a = 0;
    double b = 0;
    bool c = false;
    int get() const { return a; }
    void set(int value) { a = value; }
};

template <std::size_t N>
void bindOne(py::module_& module)
{
    py::class_<Bare<N>> cls(module, ("Bare" + std::to_string(N)).c_str(), "A class.");
    cls.def(py::init<>());
    for (int i = 0; i < BARE_MEMBERS / 4; ++i) {
        cls.def_readwrite(("a" + std::to_string(i)).c_str(), &Bare<N>::a, "A member.");
        cls.def_readwrite(("b" + std::to_string(i)).c_str(), &Bare<N>::b, "A member.");
        cls.def(("get" + std::to_string(i)).c_str(), &Bare<N>::get, "A method.");
        cls.def(("set" + std::to_string(i)).c_str(), &Bare<N>::set, py::arg("value"), "A method.");
    }
}

template <std::size_t... N>
void bindAll(py::module_& module, std::index_sequence<N...>)
{
    (bindOne<N>(module), ...);
}

} // namespace

PYBIND11_MODULE(bare, module) { bindAll(module, std::make_index_sequence<BARE_CLASSES>()); }
