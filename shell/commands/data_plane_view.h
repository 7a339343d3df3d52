/// The data plane's objects and bindings as tables, and what became of packets in words.
#pragma once

#include <ostream>
#include <string>

#include "data_plane.h"
#include "vok_cp_sim.h"

/// Their counts and two tables: objects and bindings.
void show(std::ostream &out, const data_plane &plane);

/// What `after` has and `before` lacks, and the reverse, a line each.
void show_difference(std::ostream &out, const data_plane &before, const data_plane &after);

std::string to_text(const vok_cp_sim_arrival_t &a);
std::string to_text(const vok_cp_sim_departure_t &d);
