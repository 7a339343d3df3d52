/// Graphviz's library: graphs are built, laid out and rendered to files.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>

struct Agraph_s;

namespace graphviz {

/// By name. A label is HTML-like: what comes from elsewhere goes through escaped() into it.
using attributes = std::map<std::string, std::string>;

/// Text that reads the same inside an HTML-like label, on one line.
std::string escaped(const std::string &text);

/// For nodes of a fixed size at a fixed place: their middle and size, all in points; y grows downwards.
attributes placed(double x, double y, double width, double height);

/// A number as attributes hold it; lengths but those of nodes are in points.
std::string number(double value);

/// A directed graph. Nodes are named; whoever names one twice means the same.
class graph {
public:
    /// @param own  of the graph itself
    /// @param node that every node has unless it says otherwise; likewise `edge`
    graph(const attributes &own, const attributes &node, const attributes &edge);

    /// A box around the nodes that are put into it.
    class cluster {
    public:
        void node(const std::string &name, const attributes &of_node);

    private:
        friend class graph;
        cluster(graph &whole, Agraph_s *part) : whole_(whole), part_(part) {}
        graph &whole_;
        Agraph_s *part_;
    };

    void node(const std::string &name, const attributes &of_node);
    void edge(const std::string &tail, const std::string &head, const attributes &of_edge);
    cluster add_cluster(const attributes &of_cluster);

    /// Lays the graph out and writes it in the format that the file's extension names: .svg, .png, .pdf or .dot. A file
    /// is written as a whole or not at all.
    /// @param layout one of Graphviz's layout engines
    /// @throws std::runtime_error with what is wrong
    void render(const char *layout, const std::string &file);

private:
    void put_node(Agraph_s *into, const std::string &name, const attributes &of_node);
    void set(void *object, const attributes &values);

    struct closer {
        void operator()(Agraph_s *opened) const;
    };
    std::unique_ptr<Agraph_s, closer> graph_;
    std::size_t edges_ = 0, clusters_ = 0;
};

} // namespace graphviz
