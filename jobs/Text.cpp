#include "jobs/Text.h"

static const char* const PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                 "_-+./:,@%^";  // no special meaning anywhere in a word

std::string str(const UtString& text)
{
    return std::string((const char*)text, text.length());
}

/// Bytes of the well-formed UTF-8 sequence at text[i]; 0 when there is none.
static std::size_t sequence(const std::string& text, std::size_t i)
{
    const unsigned char c = text[i];
    const std::size_t n = c < 0x80   ? 1
                          : c < 0xC2 ? 0
                          : c < 0xE0 ? 2
                          : c < 0xF0 ? 3
                          : c < 0xF5 ? 4
                                     : 0;
    if (i + n > text.size())
        return 0;
    for (std::size_t k = 1; k < n; ++k)
        if (((unsigned char)text[i + k] & 0xC0) != 0x80)
            return 0;
    return n;
}

/// 1 for the control characters of ASCII and for those of Latin-1, which terminals obey as well.
static bool isControl(const std::string& text, std::size_t i)
{
    const unsigned char c = text[i];
    return c < 0x20 || c == 0x7F || (c == 0xC2 && (unsigned char)text[i + 1] < 0xA0);
}

std::string printable(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = sequence(text, i);
        if (n == 0)
            result += '?';
        else if (isControl(text, i))
            result += ' ';
        else
            result.append(text, i, n);
        i += n ? n : 1;
    }
    return result;
}

std::size_t width(const std::string& text)
{
    std::size_t count = 0;
    for (const char c : text)
        count += ((unsigned char)c & 0xC0) != 0x80;
    return count;
}

std::string cut(const std::string& text, std::size_t columns)
{
    if (width(text) <= columns)
        return text;
    std::size_t end = 0;
    for (std::size_t count = 1; count < columns; ++count) {
        ++end;
        while (end < text.size() && ((unsigned char)text[end] & 0xC0) == 0x80)
            ++end;
    }
    return columns == 0 ? std::string() : text.substr(0, end) + "…";
}

std::string shellQuoted(const std::string& word)
{
    std::string result = "'";
    for (const char c : word)
        if (c == '\'')
            result += "'\\''";
        else
            result += c;
    return result + "'";
}

std::string shellWord(const std::string& word)
{
    const bool plain = !word.empty() && word.find_first_not_of(PLAIN) == std::string::npos;
    return plain ? word : shellQuoted(word);
}
