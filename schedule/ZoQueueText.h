#ifndef ZOQUEUETEXT_H
#define ZOQUEUETEXT_H

#include "schedule/ZoJob.h"
#include "utlib/UtDArray.h"
#include "utlib/UtHandle.h"

/// Jobs as the text of the queue file, and back: one record of nine fields for each job, ended by
/// colons and a newline, with a backslash before each colon and backslash inside a field.
class ZoQueueText
{
public:
    /// Parses a text in place of the array's contents. Never fails: fields that do not begin with
    /// a state code are skipped where a record should start, and jobs whose marker file is gone are
    /// left out.
    static void read(const char* text, UtDArray<UtHandle<ZoJob>>& intoJobs);

    /// Appends the records of the jobs to the text.
    static void write(UtString& text, UtDArray<UtHandle<ZoJob>>& ofJobs);

    /// Takes out what a damaged file holds from a NUL byte to the end of that line, and nothing
    /// more.
    static void dropNulBytes(UtString& text);
};

#endif
