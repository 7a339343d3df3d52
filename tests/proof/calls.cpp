#include "proof/calls.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <iterator>
#include <map>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "proof/operations.h"

namespace proof {
namespace {

/// All calls succeed but one; the session-type hook is one of them.
class one_failure : public choices {
public:
    uint32_t below(uint32_t) override { return 0; }
    answer next_answer() override { return fails() ? answer::failure : answer::success; }
    uint32_t next_hook_code() override { return fails() ? hook_codes[1] : 0; }

    std::size_t calls_until_failure = 0; ///< 0: none fails

private:
    bool fails() { return calls_until_failure != 0 && --calls_until_failure == 0; }
};

constexpr const char *kinds[] = {"IPv4 ingress", "IPv4 egress",         "IPv6 ingress",      "IPv6 egress",
                                 "interface",    "L2TPv3 ingress flow", "L2TPv3 egress flow"};

/// What the handles of a run name; they differ from run to run.
using object_names = std::map<uint64_t, std::string>;

std::string text_of(const vok_bind_record &r, const object_names &names)
{
    return (r.bindKind == VOK_BIND_ID2F ? "ovlin flow" : names.at(r.srcFlowHandle)) + " -> " +
           (r.bindKind == VOK_BIND_F2ID ? "ovlin flow" : names.at(r.destFlowHandle));
}

std::multiset<std::string> texts_of(const data_plane &held, object_names &names)
{
    std::multiset<std::string> all;
    for (const data_plane::object &o : held.objects)
        all.insert(names[o.handle] = kinds[o.kind]);
    for (const data_plane::binding &b : held.bindings)
        all.insert(text_of(b.record, names));
    return all;
}

struct ran {
    uint32_t result;
    std::vector<std::string> calls;
    std::multiset<std::string> before, after; ///< what the data plane held
};

/// @param failing the number of the call that fails; 0: none
ran run(const tried_operation &operation, std::size_t failing)
{
    one_failure answers;
    world w(answers);
    operation.shown_from(w);
    object_names names{{0, "0"}};
    ran all{};
    all.before = texts_of(data_plane::now(), names);
    answers.calls_until_failure = failing;
    all.result = operation.run(w);
    for (const call &c : w.calls()) {
        if (c.created != 0)
            names[c.created] = kinds[c.kind];
        all.calls.push_back(std::string(c.operation) +
                            (c.is_bind_or_unbind() ? ' ' + text_of(c.binding(), names) : ""));
    }
    all.after = texts_of(data_plane::now(), names);
    return all;
}

std::string joined(const std::multiset<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

std::multiset<std::string> difference(const std::multiset<std::string> &all, const std::multiset<std::string> &but)
{
    std::multiset<std::string> rest;
    std::ranges::set_difference(all, but, std::inserter(rest, rest.end()));
    return rest;
}

/// What a failure leaves in the data plane that should not be there, or takes from it.
std::string left_behind(const ran &whole, const ran &failed)
{
    // An operation that gives 0 all the same leaves what it was to take away; any other, what was not there before.
    const auto &due = failed.result == 0 ? whole.after : failed.before;
    const auto lost = difference(due, failed.after);
    if (lost.size() > failed.after.size())
        return "all removed but: " + joined(failed.after);
    const std::string left = joined(difference(failed.after, due));
    return (left.empty() ? "nothing" : left) + (lost.empty() ? "" : "; lost: " + joined(lost));
}

/// The calls of an operation and, in the columns beside each, what its failure leads to.
void show(std::ostream &out, const tried_operation &operation)
{
    const ran whole = run(operation, 0);
    // The label of each call: its number, or a letter for one that only follows a failure.
    std::map<std::string, std::string> labels;
    for (std::size_t i = 0; i < whole.calls.size(); ++i)
        labels.emplace(whole.calls[i], std::to_string(i + 1));
    std::vector<std::string> only_after_failure;
    std::vector<std::array<std::string, 3>> consequences;
    for (std::size_t failing = 1; failing <= whole.calls.size(); ++failing) {
        const ran failed = run(operation, failing);
        const auto after = std::span(failed.calls).subspan(failing);
        std::string then;
        for (const std::string &call : after) {
            const std::string letter(1, static_cast<char>('a' + only_after_failure.size()));
            const auto [label, is_new] = labels.emplace(call, letter);
            if (is_new)
                only_after_failure.push_back(call);
            then += (then.empty() ? "" : " ") + label->second;
        }
        if (std::ranges::equal(after, std::span(whole.calls).subspan(failing)))
            then = after.empty() ? "" : "goes on";
        consequences.push_back({std::to_string(failed.result), then, left_behind(whole, failed)});
    }

    std::size_t call_width = 4, then_width = 4;
    for (const std::string &call : whole.calls)
        call_width = std::max(call_width, call.size());
    for (const auto &consequence : consequences)
        then_width = std::max(then_width, consequence[1].size());
    const auto row = [&](const std::string &label, const std::string &call, const std::array<std::string, 3> &cells) {
        std::ostringstream line;
        line << std::setw(4) << label << "  " << std::left << std::setw(static_cast<int>(call_width)) << call << "  "
             << std::setw(6) << cells[0] << "  " << std::setw(static_cast<int>(then_width)) << cells[1] << "  "
             << cells[2];
        const std::string text = line.str();
        out << text.substr(0, text.find_last_not_of(' ') + 1) << "\n";
    };
    out << operation.exported_name << (*operation.form != '\0' ? ", " : "") << operation.form << "\n";
    row("", "call", {"result", "then", "left behind"});
    for (std::size_t i = 0; i < whole.calls.size(); ++i)
        row(std::to_string(i + 1), whole.calls[i], consequences[i]);
    for (const std::string &call : only_after_failure)
        row(labels[call], call, {});
}

} // namespace

void show_calls(std::ostream &out, const std::string &part_of_name)
{
    const char *separator = "";
    for (const tried_operation &operation : operations) {
        if (operation.exported_name == nullptr ||
            std::string_view(operation.exported_name).find(part_of_name) == std::string_view::npos)
            continue;
        out << std::exchange(separator, "\n");
        show(out, operation);
    }
    if (*separator == '\0')
        throw std::runtime_error("no operation with data-plane calls: " + part_of_name);
}

} // namespace proof
