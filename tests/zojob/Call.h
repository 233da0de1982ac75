#ifndef CALL_H
#define CALL_H

#include "tests/sandbox/TestServer.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

using Words = std::vector<std::string>;

/// One call of zojob, running beside the test.
class Call : public Process
{
public:
    explicit Call(const Words& words, const std::string& input = "")
        : Process(with({ KELVO_BUILD_DIR "/bin/zojob" }, words), input)
    {
    }
    /// A line of shell, in which "$0" with the words behind it is the call.
    Call(const char* line, const Words& words, const std::string& input = "")
        : Process(with({ "sh", "-c", line, KELVO_BUILD_DIR "/bin/zojob" }, words), input)
    {
    }

private:
    static Words with(Words first, const Words& rest)
    {
        first.insert(first.end(), rest.begin(), rest.end());
        return first;
    }
};

inline bool holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// The words of a line, in which blanks part them and nothing is quoted.
inline Words split(const std::string& line)
{
    std::istringstream words(line);
    return { std::istream_iterator<std::string>(words), {} };
}

/// A row of a table: what is expected, and the words of a call that stand behind ": ".
struct Row {
    std::string expected;
    Words words;

    Row(const char* text)
        : expected(text, std::strstr(text, ": ")), words(split(std::strstr(text, ": ") + 2))
    {
    }
};

inline std::string joined(const Words& words)
{
    std::string text = "zojob";
    for (const std::string& word : words)
        text += " " + word;
    return text;
}

/// Calls zojob; the test fails when that does not end with the status. Returns what it prints.
inline std::string zojob(const Words& words, int status = 0, const std::string& input = "")
{
    Call call(words, input);
    EXPECT_EQ(status, call.end()) << joined(words) << ": " << call.err();
    return call.out();
}

/// Calls zojob; the test fails when that is not refused for this reason.
inline void expectRefusal(const Words& words, const std::string& reason)
{
    Call call(words);
    EXPECT_EQ(1, call.end()) << joined(words);
    EXPECT_TRUE(holds(call.err(), reason)) << joined(words) << ": " << call.err();
}

#endif
