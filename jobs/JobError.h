#ifndef JOBERROR_H
#define JOBERROR_H

#include <stdexcept>
#include <string>

/// The one exception of this folder. what() is a sentence for the user: what happened and why,
/// without a full stop and without the name of any front's option. A front may add advice of its
/// own, chosen by the kind.
class JobError : public std::runtime_error
{
public:
    enum Kind {
        INVALID,         ///< what was asked for makes no sense: an empty command
        NOT_FOUND,       ///< no job has that name
        AMBIGUOUS,       ///< several jobs have that name; the sentence names them
        FILE_FAILED,     ///< a file or directory could not be made, read or written
        REFUSED,         ///< the server took the request and said no
        NO_SERVER,       ///< nobody answers, and no server may or can be started from here
        NO_LAUNCHER,     ///< nobody answers, and the launcher is missing
        SILENT_SERVER,   ///< the launcher was called, and still nobody answers
        FOREIGN_SERVER,  ///< who answers refuses this user
    };

    JobError(Kind itsKind, const std::string& sentence, long long itsOtherUser = -1)
        : std::runtime_error(sentence), kind(itsKind), otherUser(itsOtherUser)
    {
    }

    const Kind kind;
    const long long otherUser;  ///< of a FOREIGN_SERVER the user id of its owner; -1: not known
};

/// `text` with the reason that errno gives, as in "cannot write x: No space left on device".
std::string withReason(const std::string& text);

#endif
