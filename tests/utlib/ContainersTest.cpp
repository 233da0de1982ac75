#include "utlib/UtFilename.h"
#include "utlib/UtString.h"
#include "utlib/UtStringTokenizer.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

static int alive = 0;

struct Counted : UtHandable {
    Counted() { ++alive; }
    ~Counted() override { --alive; }
};

TEST(Containers, GrowByHalfOfWhatIsInUse)
{
    UtDArray<int> numbers;
    for (int capacity : { 1, 2, 3, 4, 6, 9, 13, 19, 28 }) {
        numbers.append(capacity);
        while (numbers.size() < capacity && numbers.capacity() == capacity)
            numbers.append(capacity);
        ASSERT_EQ(capacity, numbers.capacity());
    }
    UtString text("123456789012345"), copy(text), other(text);
    EXPECT_EQ(16, copy.capacity());
    copy += "x";
    EXPECT_EQ(22, copy.capacity());
    other += 'x';
    EXPECT_EQ(24, other.capacity());
    EXPECT_EQ(17, UtString(other).capacity());
}

TEST(Containers, TakeWhatLiesInThemselves)
{
    UtDArray<UtHandle<Counted>> handles;
    handles.append(new Counted);
    UtString text("abc");
    std::string expected = "abc";
    for (int i = 1; i < 10; ++i) {  // the storage moves at several of them
        handles.append(handles[0]);
        text += (const char*)text + 1;
        expected += expected.substr(1);
    }
    EXPECT_EQ(10, handles[0]->references);
    text = (const char*)text + 2;
    EXPECT_STREQ(expected.c_str() + 2, text);
}

TEST(Containers, ReleaseEachHandleOnce)
{
    UtDArray<UtHandle<Counted>> handles;
    for (int i = 0; i < 5; ++i)
        handles.append(new Counted);
    UtHandle<Counted> second = handles[1], third = handles[2], none;
    UtHandle<Counted>& first = handles[0];  // the only holder of its object
    first = (const UtHandle<Counted>&)first;
    EXPECT_EQ(5, alive);
    EXPECT_FALSE(utStandardEqual(second, third));
    EXPECT_TRUE(utStandardEqual(none, UtHandle<Counted>()));
    handles.remove(1, 1);
    EXPECT_EQ(1, second->references);
    EXPECT_TRUE(utStandardEqual(handles[1], third));
    EXPECT_EQ(2, third->references);
    handles.resize(0);
    EXPECT_EQ(2, alive);
    second = third = none;
    EXPECT_EQ(0, alive);
}

TEST(Containers, StringsCompareAndFormat)
{
    UtString text("abc");
    EXPECT_EQ(0, text != "abc");
    for (const char* other : { "ab", "abd", "abcd", "", (const char*)nullptr })
        EXPECT_EQ(1, text != other) << other;
    text.insertMemory(0, 2);
    memcpy(text.data, "xy", 2);
    EXPECT_STREQ("xyabc", text);
    text = nullptr;
    EXPECT_EQ(0, text.length());
    EXPECT_EQ(1, text != nullptr);
    for (size_t length : { 13, 14, 15, 100000 }) {  // around the room of a new string
        UtFilename name;
        name.printf("%d%s", 42, std::string(length, 'w').c_str());
        ASSERT_EQ("42" + std::string(length, 'w'), (const char*)name);
    }
}

TEST(Tokenizer, SplitsRequestAndListLines)
{
    const std::pair<const char*, std::vector<std::string>> lines[] = {
        { " \t\r\n\v\f ", {} },
        { "user submit \"make  all\" \"\" /tmp\r\n",
          { "user", "submit", "make  all", "", "/tmp" } },
        { "\"one\"two \"three ", { "one", "two", "three " } },
        { "a\"b c\" \"", { "a\"b", "c\"", "" } },
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
