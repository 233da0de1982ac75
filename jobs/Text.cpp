#include "jobs/Text.h"

#include <clocale>
#include <cstdio>
#include <cwchar>
#include <locale.h>

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

/// The character of a well-formed sequence of n bytes.
static unsigned codePoint(const std::string& text, std::size_t i, std::size_t n)
{
    const unsigned char first = text[i];
    unsigned code = n == 1 ? first : first & (0x7F >> n);
    for (std::size_t k = 1; k < n; ++k)
        code = code << 6 | ((unsigned char)text[i + k] & 0x3F);
    return code;
}

/// Whether a terminal would obey it: the control characters of ASCII and of Latin-1, and what ends
/// a line or turns the direction of writing, so that a text could look like another one.
static bool isControl(unsigned code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

/// A control character as a C string would hold it.
static std::string escaped(unsigned code)
{
    char text[16];
    if (code == '\n' || code == '\r' || code == '\t')
        return code == '\n' ? "\\n" : code == '\r' ? "\\r" : "\\t";
    std::snprintf(text, sizeof text, code < 0x100 ? "\\x%02x" : "\\u%04x", code);
    return text;
}

std::string printable(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t n = sequence(text, i);
        if (n == 0)
            result += '?';
        else if (isControl(codePoint(text, i, n)))
            result += escaped(codePoint(text, i, n));
        else
            result.append(text, i, n);
        i += n ? n : 1;
    }
    return result;
}

/// The columns that a terminal gives to a character: none for what combines with the one before,
/// two for those of East Asia and for pictures.
static std::size_t columnsOf(unsigned code)
{
    // Of a locale of our own: the user's may know ASCII only, whatever the terminal can show.
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (code < 0x80 || !utf8)
        return 1;
    const locale_t before = ::uselocale(utf8);
    const int n = ::wcwidth((wchar_t)code);
    ::uselocale(before);
    return n < 0 ? 1 : (std::size_t)n;
}

/// Where the characters end that fit into so many columns, and how many columns they take.
static std::size_t fitting(const std::string& text, std::size_t columns, std::size_t& taken)
{
    std::size_t i = 0;
    taken = 0;
    while (i < text.size()) {
        const std::size_t n = sequence(text, i);
        const std::size_t more = n ? columnsOf(codePoint(text, i, n)) : 1;
        if (taken + more > columns)
            break;
        taken += more;
        i += n ? n : 1;
    }
    return i;
}

std::size_t width(const std::string& text)
{
    std::size_t taken;
    fitting(text, (std::size_t)-1, taken);
    return taken;
}

std::string cut(const std::string& text, std::size_t columns)
{
    std::size_t taken;
    if (columns == 0)
        return "";
    if (fitting(text, columns, taken) == text.size())
        return text;
    return text.substr(0, fitting(text, columns - 1, taken)) + "…";
}

std::string cutMiddle(const std::string& text, std::size_t columns)
{
    const std::size_t all = width(text), tail = columns * 2 / 3;
    if (all <= columns)
        return text;
    std::size_t taken, end = fitting(text, all - tail, taken);
    if (all - taken > tail)  // a wide character stands across the place
        end += sequence(text, end);
    return cut(text, columns - tail) + text.substr(end);
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
