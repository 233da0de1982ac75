#include "window/ScriptParts.h"

#include <algorithm>

static const std::string ENTER = "\nzj_dir=";
static const std::string VALUES = "\nset --";

/// Reads one word in the shell's single quotes at `place`, which moves behind it.
static std::string takeQuoted(const std::string& text, std::size_t& place)
{
    std::string word;
    while (place < text.size() && text[place] != '\n' && text[place] != ' ') {
        if (text[place] == '\'') {
            const std::size_t end = std::min(text.find('\'', place + 1), text.size());
            word += text.substr(place + 1, end - place - 1);
            place = end + 1;
        } else {
            place += text[place] == '\\';
            if (place < text.size())
                word += text[place++];
        }
    }
    return word;
}

ScriptParts ScriptParts::read(const std::string& script)
{
    ScriptParts parts;
    const std::size_t enter = script.find(ENTER), values = script.find(VALUES);
    if (enter == std::string::npos || values == std::string::npos)
        return parts;
    std::size_t place = enter + ENTER.size();
    parts.directory = takeQuoted(script, place);
    place = values + VALUES.size();
    while (place < script.size() && script[place] == ' ') {
        ++place;
        parts.environment.push_back(takeQuoted(script, place));
    }
    return parts;
}
