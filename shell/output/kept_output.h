/// An output stream that also keeps what passes through it.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

class kept_output : private std::streambuf, public std::ostream {
public:
    explicit kept_output(std::ostream &real) : std::ostream(this), real_(real) {}

    /// What was written since the last keep(true) after which something was.
    const std::string &kept() const { return kept_; }

    /// true: keeps what is written from now on in place of what was; false: leaves what is kept as it is.
    void keep(bool keeps) { keeps_ = is_new_ = keeps; }

private:
    int overflow(int c) override
    {
        const char one = static_cast<char>(c);
        xsputn(&one, 1);
        return c;
    }

    std::streamsize xsputn(const char *text, std::streamsize size) override
    {
        if (is_new_)
            kept_.clear();
        is_new_ = false;
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
    bool keeps_ = true, is_new_ = true;
};
