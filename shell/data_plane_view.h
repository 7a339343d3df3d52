/// The stand-in data plane's objects and bindings, and the way of packets through it, in words.
#pragma once

#include <ostream>
#include <string>

#include "vok_cp_sim.h"

/// Two tables: objects and bindings.
void show_data_plane(std::ostream &out);

/// "2 objects, 1 bindings"
std::string data_plane_counts();

/// No object and no binding.
bool data_plane_is_empty();

/// One L2TPv3 ingress interface and nothing else.
bool data_plane_is_only_interface();

std::string to_text(const vok_cp_sim_arrival_t &arrival);
std::string to_text(const vok_cp_sim_departure_t &departure);
