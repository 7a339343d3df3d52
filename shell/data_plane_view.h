/// The stand-in data plane's objects and bindings as tables.
#pragma once

#include <ostream>

void show_data_plane(std::ostream &out);
