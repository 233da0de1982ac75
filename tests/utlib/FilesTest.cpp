#include "tests/support/Sandbox.h"
#include "utlib/UtDirectory.h"
#include "utlib/UtEnvironment.h"
#include "utlib/UtFilename.h"
#include "utlib/UtTmpDir.h"

#include <filesystem>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

/// While this is not negative, deletions are counted and refused.
static int deletions = -1;

extern "C" __attribute__((visibility("default"))) int unlinkat(int fd, const char* name,
                                                               int flags) noexcept
{
    return deletions < 0 ? (int)::syscall(SYS_unlinkat, fd, name, flags) : (++deletions, -1);
}

static int modeOf(const char* path)
{
    return (int)fs::symlink_status(path).permissions();
}

TEST(TmpDir, IsNewWithTheModeAskedForWhereAClientCanNameIt)
{
    ::umask(077);
    fs::create_directory(Sandbox::path("white space"));
    for (const std::string& place : { Sandbox::path("tmp"), Sandbox::path("white space"),
                                      Sandbox::path("missing"), std::string("tmp") }) {
        ::setenv("TMPDIR", place.c_str(), 1);
        UtTmpDir first("kelvojob", true, false), second("kelvojob", true, false);
        EXPECT_EQ(0, first.create(0775));
        EXPECT_EQ(0, second.create(0775));
        EXPECT_STRNE(first, second);
        const std::string used = place == Sandbox::path("tmp") ? place : "/var/tmp";
        EXPECT_EQ(0, strncmp(first, (used + "/kelvojob").c_str(), used.size() + 9)) << place;
        EXPECT_EQ(0775, modeOf(first));
    }
    EXPECT_TRUE(fs::is_empty("tmp"));  // removed at the end of their scope
}

TEST(TmpDir, RemovesATreeAndNothingItLinksTo)
{
    UtTmpDir tree("tree", false, true);
    ASSERT_EQ(0, tree.create(0700));
    const std::string root = (const char*)tree;
    for (const std::string& path : { std::string("kept"), root + "/deep/er", root + "/locked" }) {
        fs::create_directories(path);
        Sandbox::write(path + "/.file", "x");
    }
    for (const std::string& path : { std::string("link"), root + "/link", root + "/deep/link" })
        fs::create_directory_symlink(Sandbox::path("kept"), path);
    ::chmod((root + "/locked").c_str(), 0500);
    EXPECT_EQ(0, tree.remove());
    EXPECT_FALSE(fs::exists(root));
    tree = "link/";
    tree.remove();
    EXPECT_FALSE(fs::is_symlink("link"));
    EXPECT_EQ("x", Sandbox::read("kept/.file"));
}

TEST(TmpDir, NeverRemovesTheRootNorAnythingWithoutAName)
{
    if (!::getenv("KELVO_SANDBOX_PRIVATE"))
        GTEST_SKIP() << "tried only where the root directory is read-only";
    UtTmpDir tree("tree", false, true);
    deletions = 0;
    for (const char* path : { "", "/", "//" }) {
        tree = path;
        EXPECT_EQ(-1, tree.remove()) << path;
    }
    EXPECT_EQ(0, deletions);
    deletions = -1;
}

TEST(Filename, CreatesAnEmptyFileAndFollowsNoLink)
{
    ::umask(077);
    Sandbox::write("old", "precious");
    fs::create_symlink("old", "link");
    UtFilename link, name;
    link = "link";
    EXPECT_EQ(-1, link.create(0664));
    EXPECT_EQ("precious", Sandbox::read("old"));
    name.printf("%s.%lld", "new", 5000000000LL);
    const UtFilename copy = name;
    name = "old";
    EXPECT_FALSE(copy.doesExist());
    for (const UtFilename& file : { copy, name }) {
        EXPECT_EQ(0, file.create(0664));
        EXPECT_EQ(0664, modeOf(file));
        EXPECT_EQ("", Sandbox::read((const char*)file));
    }
    EXPECT_TRUE(fs::exists("new.5000000000"));
}

TEST(System, AnswersAboutDirectoriesAndVariables)
{
    Sandbox::write("file", "");
    fs::create_directory_symlink("home", "link");
    for (const char* path : { "home", "link", "file", "missing", "" })
        EXPECT_EQ(strchr("hl", path[0]) && *path, UtDirectory::isDirectory(path)) << path;
    ::setenv("USER", " j\xc3\xb6rg x\t\n", 1);
    EXPECT_STREQ("j\xc3\xb6rg x", UtEnvironment::getValue("USER", true).toUtf8());
    EXPECT_STREQ(" j\xc3\xb6rg x\t\n", UtEnvironment::getValue("USER", false).toUtf8());
    ::unsetenv("USER");
    EXPECT_TRUE(UtEnvironment::getValue("USER", true).isEmpty());
}
