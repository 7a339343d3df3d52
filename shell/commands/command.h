/// The shell's commands, as rows of tables from which help, completion and the parser follow.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "values.h"

class shell;

/// A line that is wrong, so that nothing was done, or an expectation that does not hold.
struct bad_line : std::runtime_error {
    explicit bad_line(const std::string &what, int number = 0) : std::runtime_error(what), line_number(number) {}
    int line_number; ///< 0: the current one
};

/// What a command takes after its name.
struct parameter {
    std::string name; ///< "ID", or "--local" of an option
    std::string type; ///< as the help names it; empty: a flag
    std::string meaning;
    std::string fallback{}; ///< the default value; empty: none
    bool is_required = false;
    bool takes_several = false;
    std::function<void(const std::string &)> check{}; ///< throws std::invalid_argument; none: any text is valid
    std::function<std::vector<std::string>(const shell &)> choices{}; ///< known values, for completion

    bool is_option() const { return name.starts_with("--"); }
};

using choices_of = decltype(parameter::choices);

parameter text(const char *name, const char *meaning);
parameter file(const char *meaning); ///< the name of one: FILE
parameter flag(const char *name, const char *meaning);
parameter number(const char *name, const char *meaning, const char *fallback = "", std::uint32_t max = UINT32_MAX);
parameter byte(const char *name, const char *meaning, const char *fallback = ""); ///< from 0 to 255
parameter address(const char *name, const char *meaning);                         ///< IPv4
parameter address_and_port(const char *name, const char *meaning);
parameter one_of(const char *name, const char *meaning, const std::vector<std::string> &words);
parameter required(parameter p);
parameter several(parameter p);
parameter with_choices(parameter p, choices_of choices);

struct command;

/// The arguments of a line.
class arguments {
public:
    explicit arguments(const command &read) : read_(read) {}
    void add(const std::string &name, std::vector<std::string> values) { given_[name] = std::move(values); }

    bool has(const char *name) const { return given_.contains(name); }
    const std::string &text(const char *name) const; ///< as given, or the default
    std::vector<std::string> texts(const char *name) const;
    std::uint32_t number(const char *name) const { return parse_number(text(name)); }
    std::uint32_t number(const char *name, std::uint32_t otherwise) const
    {
        return has(name) ? number(name) : otherwise;
    }
    std::uint8_t byte(const char *name) const { return static_cast<std::uint8_t>(number(name)); }

private:
    const command &read_;
    std::map<std::string, std::vector<std::string>, std::less<>> given_;
};

struct command {
    std::string name; ///< "udp add"
    std::string meaning;
    std::string example;
    std::vector<parameter> parameters;
    void (*run)(shell &, const arguments &);
};

/// The ids in use, for completion.
std::vector<std::string> udp_sessions(const shell &s);
std::vector<std::string> l2tp_connections(const shell &s);
std::vector<std::string> l2tp_sessions(const shell &s);

/// @throws bad_line unless both are of one IP version
void require_same_version(const char *first_name, const endpoint &first, const char *second_name,
                          const endpoint &second);

/// A command that takes nothing.
command plain(const char *name, const char *meaning, void (*run)(shell &, const arguments &));

// In the order of the help.
std::vector<command> library_commands();
std::vector<command> udp_commands();
std::vector<command> l2tp_commands();
std::vector<command> packet_commands();
std::vector<command> fault_commands();
std::vector<command> view_commands();
std::vector<command> expect_commands();
std::vector<command> scenario_commands();
