#include "utlib/UtFilename.h"
#include "utlib/UtString.h"
#include "utlib/UtStringTokenizer.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

static int alive = 0;

struct Counted : UtHandable {
    Counted() { ++alive; }
    Counted(const Counted& other) : UtHandable(other) { ++alive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() override { --alive; }
};

TEST(Containers, HandlesAreReleasedOnceWhateverMovesThem)
{
    UtDArray<UtHandle<Counted>> handles;
    for (int i = 0; i < 5; ++i)
        handles.append(new Counted);
    UtHandle<Counted>& first = handles[0];  // the only holder of its object
    first = (const UtHandle<Counted>&)first;
    for (int i = 0; i < 9; ++i)
        handles.append(handles[2]);  // the storage moves at some of them
    UtHandle<Counted> third = handles[2];
    EXPECT_EQ(11, third->references);
    handles[1] = new Counted(*third);
    *third = *handles[1];
    EXPECT_EQ(12, third->references + handles[1]->references) << "holders are not copied";
    handles.remove(1, 1);
    EXPECT_EQ(4, alive);
    EXPECT_TRUE(utStandardEqual(handles[1], third));
    handles.resize(0);
    EXPECT_EQ(1, alive);
    third = nullptr;
    EXPECT_EQ(0, alive);
    UtDArray<UtHandle<Counted>>().append(new Counted);
    EXPECT_EQ(0, alive) << "the array has gone with its elements";
}

TEST(Containers, ArraysKeepTheirOrder)
{
    UtDArray<int> numbers;
    for (int i = 0; i < 9; ++i)
        numbers.append(i);
    numbers.remove(2, 3);
    numbers.insertMemory(1, 2);
    numbers[1] = numbers[2] = 7;
    numbers.resize(10);
    const std::vector<int> expected = { 0, 7, 7, 1, 5, 6, 7, 8, 0, 0 };
    EXPECT_EQ(expected, std::vector<int>(&numbers[0], &numbers[0] + numbers.size()));
    numbers.resize(0);
    numbers.append(3);
    EXPECT_EQ(3, numbers[0]);
    EXPECT_EQ(1, numbers.size());
    EXPECT_LE(10, numbers.capacity());
    for (int i = 1; i < 100; ++i) {  // the storage moves now and then, and the element with it
        numbers.append(numbers[0]);
        EXPECT_EQ(3, numbers[i]);
    }
}

TEST(Containers, TextsTakeWhatLiesInThemselvesAndAnyLength)
{
    UtString text("abc");
    std::string expected = "abc";
    for (int i = 1; i < 10; ++i) {
        text += (const char*)text + 1;
        expected += expected.substr(1);
    }
    text = (const char*)text + 2;
    EXPECT_STREQ(expected.c_str() + 2, text);
    UtString withNul("a"), copy("old");
    withNul.appendText("\0b", 2);
    copy = withNul;
    EXPECT_EQ(std::string("a\0b", 3), std::string(copy, copy.length()));
    copy += 'c';
    EXPECT_EQ(4, copy.length());
    EXPECT_EQ(3, withNul.length()) << "a copy of its own";
    copy += (const char*)nullptr;
    const UtString short1("ab"), short2("abc");
    EXPECT_TRUE(short1 != short2 && short1 == "ab" && short1 != "abc" && short1 != nullptr);
    copy = (const char*)nullptr;
    EXPECT_STREQ("", copy);
    for (size_t length : { 1021, 1022, 100000 }) {  // 1023 characters are formatted at once
        UtFilename name;
        name.printf("%d%s", 42, std::string(length, 'w').c_str());
        EXPECT_EQ("42" + std::string(length, 'w'), (const char*)name);
        name.printf("%s", ::getenv("NO_SUCH_VARIABLE"));
        EXPECT_STREQ("(null)", name);
    }
}

TEST(Tokenizer, SplitsRequestAndListLines)
{
    const std::pair<const char*, std::vector<std::string>> lines[] = {
        { " \t\r\n\v\f ", {} },
        { "user submit \"make  all\" \"\" /tmp\r\n",
          { "user", "submit", "make  all", "", "/tmp" } },
        { "\"one\"two \"three ", { "one", "two", "three " } },
        { "caf\xc3\xa0 \"a \\\" b\"", { "caf\xc3\xa0", "a \\", "b\"" } },
    };
    for (const auto& [line, tokens] : lines) {
        UtStringTokenizer tokenizer(line);
        std::vector<std::string> found;
        while (tokenizer.hasMoreTokens())
            found.push_back((const char*)tokenizer.nextToken());
        EXPECT_EQ(tokens, found) << line;
        EXPECT_STREQ("", tokenizer.nextToken()) << line;
    }
}
