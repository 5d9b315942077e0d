/*
 * Text of a stranger on its way to a terminal: names are of any content, and control characters in
 * one would move the cursor or worse.
 */
#pragma once

#include <string>
#include <string_view>

inline std::string printable(std::string_view text)
{
    std::string shown(text);

    for (char &c : shown)
        if (c < ' ' || c > '~')
            c = '?';
    return shown;
}
