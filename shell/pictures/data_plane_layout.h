/// Where things stand in a picture of the data plane: columns as packets come in from the network, from left to right,
/// and a band of rows for each group, so that a packet's way is a line from one side to the other.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "owner_groups.h"

class data_plane_layout {
public:
    enum column { network, association, interface, l2tpv3_flow, ovlin_flow, columns };

    struct size {
        double width, height;
    };

    struct node {
        column where;
        double y; ///< of its middle; y grows downwards
        double height;
    };

    struct box {
        double left, top, right, bottom;
    };

    /// @param size_of of a node, by its name
    data_plane_layout(const data_plane &plane, const ownership &owners, const std::vector<owner_group> &groups,
                      const std::function<size(const std::string &name)> &size_of);

    /// What a node is called: an object, a dangling handle, an ovlin flow, or a group's network in a VRF.
    static std::string name_of(const data_plane::object &object);
    static std::string name_of(const dangling_handle &dangling);
    static std::string name_of_ovlin_flow(std::uint32_t id);
    static std::string name_of_network(const owner_group &group, std::uint32_t vrf);

    static column column_of(vok_cp_sim_kind_t kind);

    const std::map<std::string, node> &nodes() const { return nodes_; }
    double left(column c) const { return left_[c]; }
    double right(column c) const { return left_[c] + width_[c]; }

    /// The frame around the group's objects, with a line for its title at the top.
    box frame(std::size_t group) const;
    static constexpr double title_height = 22;

    /// The bindings with both ends in the picture.
    const std::vector<const data_plane::binding *> &bindings() const { return bindings_; }

    static constexpr double padding = 12;      ///< between a frame and what it holds
    static constexpr double label_width = 130; ///< beside a column, its frames' padding included; and ...
    static constexpr double bend_width = 42;   ///< ... of where lines change their row

private:
    struct row {
        std::array<std::string, columns> in; ///< the names of its nodes; a line passes where it is "-"
    };

    struct band {
        std::vector<row> rows;
        column first = columns, last = network; ///< of the objects
        bool leads_to_ovlin = false;
        std::vector<std::size_t> attached; ///< groups that send through this one's associations
        bool is_placed = false;
        double top = 0, bottom = 0;
    };

    using sizes = std::function<size(const std::string &)>;
    class band_filler;

    void place(std::size_t group, const sizes &size_of);
    void put(band &placed, double top, const sizes &size_of);
    static double height_of(const row &measured, const sizes &size_of);
    static double height_of(const band &measured, const sizes &size_of);
    void place_networks(const std::vector<owner_group> &groups, const sizes &size_of);
    void place_columns(const sizes &size_of);

    std::vector<band> bands_; ///< of the groups
    std::map<std::string, node> nodes_;
    std::vector<const data_plane::binding *> bindings_;
    std::array<double, columns> bottoms_{}, left_{}, width_{};
};
