#include "audit.h"

#include <utility>

#include "ownership.h"
#include "text_table.h"

void audit::after(const std::string &operation, const ledger &known, const data_plane &plane)
{
    const ownership owners(known, plane);
    findings_.clear();
    for (const data_plane::object &o : plane.objects)
        if (owners.of(o).empty())
            findings_.push_back(to_text(o) + " has no owner");
    for (const data_plane::binding &b : plane.bindings)
        if (owners.of(b).empty())
            findings_.push_back("binding " + to_text(b.record) + " has no owner");
    for (const dangling_handle &d : owners.dangling())
        findings_.push_back(d.field + " " + handle_text(d.handle) + " of " + to_text(d.holder) + " names nothing");

    std::map<std::string, std::string> still_left_by;
    for (const std::string &finding : findings_) {
        const auto known_before = left_by_.find(finding);
        still_left_by[finding] = known_before != left_by_.end() ? known_before->second : operation;
    }
    left_by_ = std::move(still_left_by);
}

void audit::show(std::ostream &out, const data_plane &plane) const
{
    if (findings_.empty()) {
        out << "audit: nothing is wrong: " << plane.counts() << ", each with an owner, and every handle names one\n";
        return;
    }
    text_table table{{"what is wrong", "left by"}};
    for (const std::string &finding : findings_)
        table.add({finding, left_by_.at(finding)});
    out << "audit: " << findings_.size() << (findings_.size() == 1 ? " thing is wrong\n" : " things are wrong\n")
        << table;
}
