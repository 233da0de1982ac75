#ifndef PLACE_H
#define PLACE_H

#include <string>
#include <vector>

/// The private place in which a benchmark runs: nothing in it belongs to the person who measures.
class Place
{
public:
    enum { RECORD_SIZE = 100 };  ///< bytes of each job's record in the queue file

    /// Runs the program again inside a private place, unless it is in one already, and goes to its
    /// home. Call it first.
    static void enter(char** argv);

    /// What makes a place, and the program that runs now.
    static std::string script();
    static std::string program();
    /// The directory that the launcher lies under, "bin/start": this build's.
    static std::string installation();
    static std::string home();
    static std::string queueFile();

    /// Sees to it that the jobs 0 .. count - 1 have their directories and marker files. Ends the
    /// program when they cannot be made.
    static void makeJobs(long count);
    static std::string jobDirectory(long number);
    static std::string marker(long number);
    /// The record of a waiting job in the queue file, RECORD_SIZE bytes.
    static std::string record(long number);
    /// The queue file's text with the jobs 0 .. count - 1.
    static std::string queueText(long count);

    static std::string read(const std::string& path);
    static void write(const std::string& path, const std::string& text);
};

#endif
