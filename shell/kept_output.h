/// An output that is passed on and kept, to be looked at afterwards.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

class kept_output : private std::streambuf, public std::ostream {
public:
    explicit kept_output(std::ostream &real) : std::ostream(this), real_(real) {}

    const std::string &kept() const { return kept_; }
    void forget() { kept_.clear(); }

private:
    int overflow(int c) override
    {
        kept_ += static_cast<char>(c);
        real_.put(static_cast<char>(c));
        return c;
    }

    std::streamsize xsputn(const char *text, std::streamsize size) override
    {
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
};
