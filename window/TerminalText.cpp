#include "window/TerminalText.h"

#include "window/ShownText.h"

#include <QStringList>

static const uint ESCAPE = 0x1B;
static const int MAX_SEQUENCE = 64;  // characters; a longer one is text that looks like one

// The first sixteen of a terminal's colours: dull, then bright.
static const QRgb ON_LIGHT[] = { 0xFF1E2329, 0xFFB3261E, 0xFF1B7A3D, 0xFF8A6100,
                                 0xFF1F5FBF, 0xFF8E3A9D, 0xFF0B7285, 0xFF6B7280,
                                 0xFF4B5563, 0xFFD0342C, 0xFF218A49, 0xFFA37200,
                                 0xFF2E74DD, 0xFFA84AB8, 0xFF11869C, 0xFF374151 };
static const QRgb ON_DARK[] = { 0xFF6B7280, 0xFFF2777A, 0xFF6CC287, 0xFFE0B450,
                                0xFF6FA8F5, 0xFFD08BE0, 0xFF56C2D0, 0xFFD5D9E0,
                                0xFF8B93A1, 0xFFFF9494, 0xFF8BDBA2, 0xFFF2CC72,
                                0xFF93C0FF, 0xFFE3ABF0, 0xFF7EDCE8, 0xFFFFFFFF };

QColor terminalColor(int number, bool dark)
{
    if (number >= TerminalStyle::RGB)
        return QColor(QRgb(number - TerminalStyle::RGB));
    if (number < 16)
        return QColor(dark ? ON_DARK[number] : ON_LIGHT[number]);
    if (number >= 232)
        return QColor::fromHsv(0, 0, 8 + (number - 232) * 10);
    const int cube = number - 16;
    const auto part = [](int step) { return step == 0 ? 0 : 55 + step * 40; };
    return QColor(part(cube / 36), part(cube / 6 % 6), part(cube % 6));
}

/// How many bytes at the end belong to a character that is not all there.
static int unfinished(const QByteArray& bytes)
{
    for (int n = 1; n <= 3 && n <= bytes.size(); ++n) {
        const uchar byte = uchar(bytes[bytes.size() - n]);
        if (byte >= 0xC0)
            return n < (byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2) ? n : 0;
        if (byte < 0x80)
            return 0;
    }
    return 0;
}

void TerminalText::take(const QByteArray& bytes)
{
    const QByteArray all = rest + bytes;
    const int left = unfinished(all);
    rest = all.right(left);
    for (const uint c : QString::fromUtf8(all.left(all.size() - left)).toUcs4())
        takeCharacter(c);
}

void TerminalText::takeCharacter(uint c)
{
    if (!sequence.isEmpty())
        takeInSequence(c);
    else if (c == ESCAPE)
        sequence = QChar(ushort(c));
    else if (c == '\n')
        endLine();
    else if (c == '\r')
        column = 0;
    else
        putVisible(c);
}

void TerminalText::takeInSequence(uint c)
{
    if (c < 0x20 || c > 0x7E || sequence.size() >= MAX_SEQUENCE) {
        showSequence();
        takeCharacter(c);
        return;
    }
    sequence += QChar(ushort(c));
    const QChar kind = sequence[1];
    if (kind == '[' && sequence.size() > 2 && c >= 0x40)
        endSequence(c);
    else if (kind == '(' && sequence.size() == 3)
        sequence.clear();  // a character set: always the usual one
    else if (kind != '[' && kind != '(')
        showSequence();
}

void TerminalText::endSequence(uint c)
{
    QVector<int> codes;
    bool plain = true;
    for (const QString& word : sequence.mid(2, sequence.size() - 3).replace(':', ';').split(';')) {
        bool isNumber = true;
        codes.append(word.isEmpty() ? 0 : word.toInt(&isNumber));
        plain = plain && isNumber;
    }
    if (!plain || (c != 'm' && c != 'K')) {
        showSequence();
        return;
    }
    sequence.clear();
    if (c == 'm')
        setStyle(codes);
    else
        eraseLine(codes.first());
}

/// Shows the sequence as text, since it has no meaning here.
void TerminalText::showSequence()
{
    const QString text = sequence;
    sequence.clear();
    for (const QChar c : text)
        putVisible(c.unicode());
}

void TerminalText::putVisible(uint c)
{
    const QString sign = c == '\t' ? QString() : visibleControl(c);
    if (sign.isEmpty())
        put(c);
    for (const QChar part : sign)
        put(part.unicode());
}

void TerminalText::put(uint c)
{
    if (column < cells.size())
        cells[column] = { c, style };
    else
        cells.append({ c, style });
    if (++column >= MAX_LINE)
        endLine();
}

void TerminalText::endLine()
{
    ended.append(runs(cells));
    cells.clear();
    column = 0;
}

void TerminalText::eraseLine(int how)
{
    if (how == 0) {
        cells.resize(std::min<int>(column, int(cells.size())));
    } else {
        const int end = how == 1 ? std::min<int>(column + 1, int(cells.size())) : int(cells.size());
        for (int i = 0; i < end; ++i)
            cells[i] = { ' ', TerminalStyle() };
    }
}

TerminalLine TerminalText::runs(const Cells& cells)
{
    TerminalLine line;
    for (const Cell& cell : cells) {
        if (line.isEmpty() || !(line.last().style == cell.style))
            line.append({ QString(), cell.style });
        const char32_t c = cell.character;
        line.last().text += QString::fromUcs4(&c, 1);
    }
    return line;
}

/// The colour behind a 38 or 48 at `place`, which moves to the last code of it; -1 for none.
int TerminalText::takeColor(const QVector<int>& codes, int& place) const
{
    const auto at = [&](int i) { return i < codes.size() ? qBound(0, codes[i], 255) : 0; };
    const int kind = at(place + 1), first = place + 2;
    place += kind == 5 ? 2 : kind == 2 ? 4 : 1;
    if (kind == 5)
        return at(first);
    if (kind == 2)
        return TerminalStyle::RGB + (at(first) << 16) + (at(first + 1) << 8) + at(first + 2);
    return -1;
}

void TerminalText::setStyle(const QVector<int>& codes)
{
    for (int i = 0; i < codes.size(); ++i) {
        const int code = codes[i];
        if (code == 0)
            style = TerminalStyle();
        else if (code == 1 || code == 2 || code == 22)
            style.bold = code == 1, style.faint = code == 2;
        else if (code == 3 || code == 23)
            style.italic = code == 3;
        else if (code == 4 || code == 24)
            style.underline = code == 4;
        else if (code == 7 || code == 27)
            style.inverse = code == 7;
        else if (code >= 30 && code <= 37)
            style.foreground = code - 30;
        else if (code >= 90 && code <= 97)
            style.foreground = code - 90 + 8;
        else if (code == 38)
            style.foreground = takeColor(codes, i);
        else if (code == 39)
            style.foreground = -1;
        else if (code >= 40 && code <= 47)
            style.background = code - 40;
        else if (code >= 100 && code <= 107)
            style.background = code - 100 + 8;
        else if (code == 48)
            style.background = takeColor(codes, i);
        else if (code == 49)
            style.background = -1;
    }
}
