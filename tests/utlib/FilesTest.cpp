#include "tests/sandbox/Process.h"
#include "tests/sandbox/Sandbox.h"
#include "utlib/UtDirectory.h"
#include "utlib/UtFilename.h"
#include "utlib/UtTmpDir.h"
#include "utlib/UtTree.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

TEST(TmpDir, IsNewWithTheModeAskedForWhereAClientCanNameIt)
{
    ::umask(077);
    for (const char* name : { "white space", "quo\"te" })
        fs::create_directory(Sandbox::path(name));
    // What is relative is another place for another process.
    for (const std::string name : { "tmp", "white space", "quo\"te", "missing", "relative" }) {
        const std::string place = name == "relative" ? "tmp" : Sandbox::path(name);
        ::setenv("TMPDIR", place.c_str(), 1);
        UtTmpDir first("kelvojob", true, false), second("kelvojob", true, false);
        EXPECT_EQ(0, first.create(0775));
        EXPECT_EQ(0, second.create(0775));
        EXPECT_STRNE(first, second);
        const std::string used = name == "tmp" ? place : "/var/tmp";
        EXPECT_EQ(used, fs::path((const char*)first).parent_path());
        EXPECT_EQ((fs::perms)0775, fs::status((const char*)first).permissions());
    }
    EXPECT_TRUE(fs::is_empty("tmp"));  // removed at the end of their scope
    const char* const places[] = { "/var/tmp/kelvojob-taken", "/tmp/kelvojob-taken" };
    for (const char* place : places) {
        EXPECT_TRUE(fs::create_directory(place));
        const bool isOther = place == places[0];  // /tmp still serves
        EXPECT_EQ(isOther ? 0 : -1, UtTmpDir("kelvojob-taken", true, true).create(0700));
    }
    for (const char* place : places)
        EXPECT_TRUE(fs::remove(place)) << "somebody else's goes with the object";
}

TEST(TmpDir, RemovesATreeAndNothingItLinksTo)
{
    UtTmpDir tree("tree", false, true);
    ASSERT_EQ(0, tree.create(0770));
    const std::string root = (const char*)tree;
    EXPECT_EQ((fs::perms)0770, fs::status(root).permissions()) << "whatever the umask";
    for (const std::string& path : { std::string("kept"), root + "/deep/er", root + "/locked" }) {
        fs::create_directories(path);
        Sandbox::write(path + "/.file", "x");
    }
    for (const std::string& path : { std::string("link"), root + "/deep/link" })
        fs::create_directory_symlink(Sandbox::path("kept"), path);
    for (const char* const path : { "/locked", "/" })
        ::chmod((root + path).c_str(), 0500);
    Process mounting([&] {  // where users may mount: in a world of their own
        return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
               ::mount("kept", (root + "/deep/er").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
               tree.remove() == 0;
    });
    EXPECT_EQ(0, mounting.end()) << "not all went";
    EXPECT_EQ(0, tree.remove());
    EXPECT_FALSE(fs::exists(root));
    tree = "link/";
    EXPECT_TRUE(UtDirectory::isDirectory("link") && !UtDirectory::isDirectory("kept/.file"));
    EXPECT_EQ(0, tree.remove());
    EXPECT_FALSE(fs::is_symlink("link"));
    EXPECT_EQ("x", Sandbox::read("kept/.file"));
}

TEST(Tree, GoesAtAnyDepthAndInTwoSteps)
{
    const rlimit descriptors = { 200, 200 };
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    fs::create_directory("deep");
    int fd = ::open("deep", O_DIRECTORY);
    for (int depth = 0; depth < 3000; ++depth) {  // more than descriptors, and than a path can say
        ::mkdirat(fd, "d", 0700);
        const int below = ::openat(fd, "d", O_DIRECTORY);
        ::close(std::exchange(fd, below));
    }
    ::close(fd);
    UtTree tree("deep");
    EXPECT_EQ(UtTree::LATE, tree.remove(0));
    EXPECT_EQ(0, tree.rename());
    EXPECT_FALSE(fs::exists("deep"));
    fs::create_directory("deep");
    EXPECT_EQ(0, UtTree("deep").rename()) << "the name of the first is taken";
    fs::create_directory("deep");  // somebody else's by now
    EXPECT_EQ(UtTree::GONE, tree.remove(-1));
    EXPECT_TRUE(fs::exists("deep")) << "it went by its name";
}

TEST(Filename, CreatesAnEmptyFileAndFollowsNoLink)
{
    ::umask(077);
    Sandbox::write("old", "precious");
    fs::create_symlink("old", "link");
    UtFilename file;
    file = "link";
    EXPECT_EQ(-1, file.create(0664));
    EXPECT_EQ("precious", Sandbox::read("old"));
    ASSERT_EQ(0, ::mkfifo("pipe", 0600));
    file = "pipe";
    EXPECT_EQ(-1, file.create(0664));
    for (const char* name : { "new", "old" }) {
        file = name;
        EXPECT_EQ(name[0] == 'o', file.doesExist());
        EXPECT_EQ(0, file.create(0664));
        EXPECT_EQ((fs::perms)0664, fs::status(name).permissions());
        EXPECT_EQ("", Sandbox::read(name));
    }
}
