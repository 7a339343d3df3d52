/// An output stream that also keeps what passes through it.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

class kept_output : private std::streambuf, public std::ostream {
public:
    explicit kept_output(std::ostream &real) : std::ostream(this), real_(real) {}

    /// What was written since the last keep(true).
    const std::string &kept() const { return kept_; }

    /// true: forgets, and keeps what is written from now on; false: leaves what is kept as it is.
    void keep(bool keeps)
    {
        keeps_ = keeps;
        if (keeps)
            kept_.clear();
    }

private:
    int overflow(int c) override
    {
        if (keeps_)
            kept_ += static_cast<char>(c);
        real_.put(static_cast<char>(c));
        return c;
    }

    std::streamsize xsputn(const char *text, std::streamsize size) override
    {
        if (keeps_)
            kept_.append(text, static_cast<std::size_t>(size));
        real_.write(text, size);
        return size;
    }

    int sync() override
    {
        real_.flush();
        return 0;
    }

    std::ostream &real_;
    std::string kept_;
    bool keeps_ = true;
};
