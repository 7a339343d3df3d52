#include "picture.h"
void draw_data_plane(const data_plane &, const ownership &, const std::string &)
{
}
void draw_ladder(const operation_record &, const std::string &)
{
}
