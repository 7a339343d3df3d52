#include "words.h"

#include <iomanip>
#include <sstream>

split_line split(const std::string &line)
{
    split_line all;
    std::istringstream rest(line);
    while (!(rest >> std::ws).eof()) {
        std::string word;
        if (!(rest >> std::quoted(word, rest.peek() == '\'' ? '\'' : '"')))
            return {all.words, word};
        if (!word.empty())
            all.words.push_back(word);
    }
    return all;
}
