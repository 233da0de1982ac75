#ifndef SCRIPTPARTS_H
#define SCRIPTPARTS_H

#include <string>
#include <vector>

/// What the script of a job holds, as it was given when the job was submitted.
struct ScriptParts {
    std::string body;                      ///< the command or script itself
    std::string directory;                 ///< where it runs
    std::vector<std::string> environment;  ///< "NAME=value"
    unsigned umask = 077;

    /// Reads a whole script; what cannot be found in it is empty, but for the body, which is then
    /// the whole text.
    static ScriptParts read(const std::string& script);
};

#endif
