#include "utlib/UtLineReader.h"

static const int PIECE = 65536;

UtLineReader::UtLineReader(int fd) : descriptor(fd), deadline(UtSocket::receiveDeadline(fd))
{
    piece.insertMemory(0, PIECE);
}

UtLineReader::~UtLineReader() = default;

/// Moves the next bytes of the line, up to its "\n", out of the piece, which is filled first when
/// all of it is handed out. Returns the bytes moved, 0 at the end of the connection, -1 on failure;
/// `isWhole` tells of the "\n".
int UtLineReader::takeLine(UtString& line, bool* isWhole)
{
    if (position == stored) {
        position = stored = 0;
        const int n = UtSocket::receiveUntil(descriptor, piece.data, PIECE, deadline);
        if (n <= 0)
            return n;
        taken += n;
        if (taken > MAX_BYTES)
            return -1;
        stored = n;
    }
    const char* const start = piece.data + position;
    const char* const end = (const char*)::memchr(start, '\n', stored - position);
    const long length = end ? end - start : stored - position;
    if (::memchr(start, '\0', length) || line.length() + length > MAX_LINE)
        return -1;
    line.appendText(start, length);
    *isWhole = end;
    position += length + (end ? 1 : 0);
    return (int)length + (end ? 1 : 0);
}

int UtLineReader::readLine(UtString& line)
{
    line = "";
    int consumed = 0;
    for (bool isWhole = false; !isWhole;) {
        const int n = takeLine(line, &isWhole);
        if (n <= 0) {
            line = "";
            return n;
        }
        consumed += n;
    }
    return consumed;
}
