#ifndef SCRIPTPARTS_H
#define SCRIPTPARTS_H

#include <string>
#include <vector>

/// What the script of a job holds, as it was given when the job was submitted.
struct ScriptParts {
    std::string directory;                 ///< where it runs
    std::vector<std::string> environment;  ///< "NAME=value"

    /// Reads a whole script; what cannot be found in it is empty.
    static ScriptParts read(const std::string& script);
};

#endif
