#ifndef SANDBOX_H
#define SANDBOX_H

#include <functional>
#include <string>

/// The private place in which tests, measurements and ordeals run: a user "tester" on the machine
/// "node1", with a home, a host name, a hosts file and temporary directories of their own; where
/// bubblewrap can do it also a network, process ids, /tmp and /var/tmp, with the rest of the
/// machine read-only. Root is an ordinary user in there. sandbox.sh makes it and deletes it.
/// KELVO_TEST_NO_BWRAP=1 in the environment does without bubblewrap; such runs wait for each other,
/// since they share the machine's ports.
class Sandbox
{
public:
    enum { SCHEDULE_PORT = 7160, STRANGER = 65534 };

    /// Called with what went wrong in here. Prints it and ends the program, unless it is set.
    static void (*fail)(const std::string& what);

    /// Runs this program again in a private place, unless it is in one. Call it first.
    static void enter(char** argv);

    /// Begins a fresh world in the place, with empty directories. Goes there.
    static void enterNew();

    /// An absolute path in the world's directory; the directory itself without a name.
    static std::string path(const std::string& name = "");
    static std::string home();
    /// A directory on a file system of 1 MiB that nobody else uses; empty where none can be
    /// mounted.
    static std::string smallDisk();
    /// Where the queue of the user's home lies.
    static std::string queueFile();

    /// Does something as the user STRANGER. For root only.
    static void asStranger(const std::function<void()>& what);

    /// The contents of a file, empty when there is none.
    static std::string read(const std::string& path);
    static void write(const std::string& path, const std::string& text);

    /// Asks again and again, until the condition holds or the seconds have passed. Returns whether
    /// it holds: `ASSERT_TRUE(Sandbox::waitFor([&] { return ...; }))`.
    static bool waitFor(const std::function<bool()>& condition, double seconds = 15);

    /// A TCP port that nobody uses now.
    static int freePort();
    /// Whether somebody listens on a port of this machine; asks without connecting.
    static bool isListening(int port);

    /// Sends the bytes to a port of this machine, says that no more will come, and returns
    /// everything that comes back until the peer closes. A connection that is refused or broken
    /// returns what came before.
    static std::string request(int port, const std::string& bytes);
};

#endif
