#pragma once
// The edges of a graph and a topological order: every node comes before those that its edges lead to.

#include <algorithm>
#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace ondra::detail {

/// Id is the type of a node's identifier. Threads: reentrant; its owner has a lock.
template <class Id>
class DAG {
public:
    using Edges = std::unordered_set<Id>;

    bool hasNode(Id id) const { return adjacency.contains(id); }
    bool hasEdge(Id from, Id to) const
    {
        const auto entry = adjacency.find(from);
        return entry != adjacency.end() && entry->second.contains(to);
    }

    /// False when the node is there already.
    bool addNode(Id id)
    {
        if (!adjacency.try_emplace(id).second)
            return false;
        valid = false;
        return true;
    }

    /// Removes the node and all its edges; false when there is no such node.
    bool removeNode(Id id)
    {
        if (!hasNode(id))
            return false;
        valid = false;
        for (auto& [node, edges] : adjacency)
            edges.erase(id);
        adjacency.erase(id);
        return true;
    }

    /// Both nodes must be there. An edge that is there already stays one edge.
    void addEdge(Id from, Id to)
    {
        valid = false;
        adjacency.at(from).insert(to);
    }
    bool removeEdge(Id from, Id to)
    {
        valid = false;
        return adjacency.at(from).erase(to) > 0;
    }

    /// The nodes in order, computed anew if an edge or a node has changed; empty for an empty graph and for a cycle.
    /// @throws std::out_of_range when an edge leads to a node that is not there
    const std::vector<Id>& order() const
    {
        if (!valid)
            computeTopologicalSort();
        return sorted;
    }

private:
    // A reverse post-order of depth-first walks, one from each node that no earlier walk has visited.
    void computeTopologicalSort() const
    {
        sorted.clear();
        sorted.reserve(adjacency.size());
        std::unordered_set<Id> visited;
        for (const auto& [root, edges] : adjacency)
            if (!visited.contains(root) && !visitFrom(root, visited)) {
                sorted.clear();
                return; // `valid` stays false
            }
        std::reverse(sorted.begin(), sorted.end());
        valid = true;
    }

    // False when this walk reaches a node a second time. That happens in a cycle, and also where two branches meet
    // again, unless an earlier walk has visited the node where they meet. So the order of the containers decides if
    // such branches are accepted. This stays, so that a graph that was once accepted is accepted again. The walk keeps
    // its own stack, since a script may build a chain of any length.
    bool visitFrom(Id root, std::unordered_set<Id>& visited) const
    {
        struct Step {
            Id node;
            typename Edges::const_iterator next, end;
        };
        std::unordered_set<Id> path; // everything this walk has reached; never emptied
        std::vector<Step> steps;
        const auto enter = [&](Id node) {
            const Edges& edges = adjacency.at(node);
            path.insert(node);
            steps.push_back({node, edges.begin(), edges.end()});
        };
        enter(root);
        while (!steps.empty()) {
            Step& step = steps.back();
            if (step.next == step.end) {
                visited.insert(step.node);
                sorted.push_back(step.node);
                steps.pop_back();
                continue;
            }
            const Id next = *step.next++;
            if (path.contains(next))
                return false;
            if (!visited.contains(next))
                enter(next);
        }
        return true;
    }

    mutable bool valid = false; // `sorted` matches `adjacency`
    mutable std::vector<Id> sorted;
    std::unordered_map<Id, Edges> adjacency; // each node has an entry
};

} // namespace ondra::detail
