/*
 * Blanks that fill a line up have the look of the piece beside them, so that a heading reaches to
 * the edge of its column.
 */
#include "painted_text.h"

#include <algorithm>

size_t width_of(const painted_line &line)
{
    size_t width = 0;

    for (const painted_piece &piece : line)
        width += piece.text.size();
    return width;
}

painted_line fitted(const painted_line &line, size_t width, bool to_the_right)
{
    painted_line made;
    size_t room = width;

    for (const painted_piece &piece : line) {
        const size_t taken = std::min(room, piece.text.size());
        if (taken != 0)
            made.push_back({piece.text.substr(0, taken), piece.as});
        room -= taken;
    }
    if (room == 0)
        return made;
    const look beside = line.empty()   ? look::PLAIN
                        : to_the_right ? line.front().as
                                       : line.back().as;
    made.insert(to_the_right ? made.begin() : made.end(), {std::string(room, ' '), beside});
    return made;
}

std::string plain(const painted_line &line)
{
    std::string text;

    for (const painted_piece &piece : line)
        text += piece.text;
    return text;
}

std::string plain(const painted_text &text)
{
    std::string all;

    for (const painted_line &line : text) {
        std::string one = plain(line);
        one.erase(one.find_last_not_of(' ') + 1);
        all += one + "\n";
    }
    return all;
}
