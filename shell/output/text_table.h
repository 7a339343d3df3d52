/// Rows of text in aligned columns under a heading. An empty table shows nothing; ^C stops a long one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "interrupt.h"

class text_table {
public:
    using row = std::vector<std::string>;

    explicit text_table(row heading) { add(std::move(heading)); }

    void add(row cells)
    {
        widths_.resize(std::max(widths_.size(), cells.size()));
        for (std::size_t i = 0; i < cells.size(); ++i)
            widths_[i] = std::max(widths_[i], cells[i].size());
        rows_.push_back(std::move(cells));
    }

    friend std::ostream &operator<<(std::ostream &out, const text_table &table)
    {
        if (table.rows_.size() == 1)
            return out;
        for (const row &cells : table.rows_) {
            if (interrupt::came != 0)
                break;
            std::string line;
            for (std::size_t i = 0; i < cells.size(); ++i)
                line += cells[i] + std::string(table.widths_[i] - cells[i].size() + 2, ' ');
            out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
        }
        return out;
    }

private:
    std::vector<row> rows_; ///< the heading first
    std::vector<std::size_t> widths_;
};
