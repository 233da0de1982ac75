#include "window/ScriptParts.h"

#include <algorithm>
#include <cstdlib>

static const std::string MASK = "\numask ";
static const std::string ENTER = "\ncd ";
static const std::string EXPORT = "export ";

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
    const std::size_t mask = script.find(MASK);
    if (mask != std::string::npos)
        parts.umask = unsigned(std::strtoul(script.c_str() + mask + MASK.size(), nullptr, 8));
    std::size_t place = script.find(ENTER);
    if (place == std::string::npos) {
        parts.body = script;
        return parts;
    }
    place += ENTER.size();
    parts.directory = takeQuoted(script, place);
    // The rest of that line says what happens when the directory cannot be entered; the path is in
    // it once more, and may hold line ends.
    const std::size_t end = script.find("; }\n", place);
    place = end == std::string::npos ? script.size() : end + 4;
    while (script.compare(place, EXPORT.size(), EXPORT) == 0) {
        place += EXPORT.size();
        parts.environment.push_back(takeQuoted(script, place));
        ++place;
    }
    if (place < script.size() && script[place] == '\n')
        parts.body = script.substr(place + 1, script.size() - place - 2);
    else
        parts.body = script.substr(std::min(place, script.size()));
    return parts;
}
