#pragma once
// What the descriptions of all nodes have in common.

#include <concepts>
#include <string>
#include <tuple>

#include "ondra/NodeInterface.h"
#include "trovi/BoxedPtr.h"
#include "trovi/Reflect.h"

/// In Python every node is an ondra::NodeInterface; the class has nothing on it but its name.
template <std::derived_from<ondra::NodeInterface> Node>
struct trovi::RegisterBase<Node> {
    using type = ondra::NodeInterface;
};
template <>
struct trovi::RegisterBase<ondra::NodeInterface> {
    using type = void;
};

template <>
constexpr auto trovi::registerMemberFunctions<ondra::NodeInterface>()
{
    return functions();
}
template <>
constexpr const char* trovi::registerDoc<ondra::NodeInterface>()
{
    return "A node of a graph. Nodes are joined by connect() of their graph, or by add_destination() of one with\n"
           "get_input_channel() of the other.";
}

namespace graph::nodes::detail {

/// "BufferSinkNode_" and so on, with the name of the event type in snake case.
template <class Event>
std::string nodeName(const std::string& prefix)
{
    return prefix + trovi::snakeCase(trovi::registeredName<Event>());
}

template <class Node>
constexpr auto inputFunction()
{
    return trovi::function("getInputChannel", &Node::getInput,
                           "The node's input, to be given to add_destination() of another node.\n"
                           "It is good in this process only, and for as long as this node lives.");
}

// The same for a sink that a model owns.
template <class Node>
constexpr auto inputNodeFunction()
{
    return trovi::function("getinputNode", &Node::getInput,
                           "The node's input, to be given to add_destination() of a node or a graph.\n"
                           "It is good in the process that holds the model, and for as long as the model lives.");
}

// The functions of Node's base that take a boxed input; each has a namesake that takes the bare pointer.
template <class Node>
constexpr auto addDestinationFunction(
    const char* doc =
        "Sends results to this input too, from the next batch on. Given twice, it receives everything twice.\n"
        "False, and nothing is changed, when it is not the input of a node of this process or takes other events.")
{
    return trovi::blockingFunction("addDestination", static_cast<typename Node::BoxedSignature>(&Node::addDestination),
                                   doc, "input");
}
template <class Node>
constexpr auto removeDestinationFunction()
{
    return trovi::blockingFunction("removeDestination",
                                   static_cast<typename Node::BoxedSignature>(&Node::removeDestination),
                                   "Sends nothing to this input any more. False when it was no destination.", "input");
}

/// The functions that every filter offers, in their order.
template <class Node>
constexpr auto filterFunctions()
{
    return trovi::functions(inputFunction<Node>(), addDestinationFunction<Node>(), removeDestinationFunction<Node>());
}

} // namespace graph::nodes::detail
