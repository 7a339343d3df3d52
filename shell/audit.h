/// What is wrong between the library's tables and the data plane, and which operation left it so.
#pragma once

#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "data_plane.h"
#include "ledger.h"

class audit {
public:
    /// Compares the two, once after each operation, which is to blame for what is new.
    void after(const std::string &operation, const ledger &known, const data_plane &plane);

    /// How many objects, bindings and handles are wrong.
    std::size_t count() const { return findings_.size(); }

    /// Each with the operation that left it; or that nothing is wrong.
    void show(std::ostream &out, const data_plane &plane) const;

private:
    std::vector<std::string> findings_;
    std::map<std::string, std::string> left_by_; ///< by finding
};
