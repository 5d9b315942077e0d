/*
 * The terminal as `top` uses it: lines of painted text out, keys in.
 *
 * Owner:   the object; the terminal is as before once it is gone. At most one at a time, as ncurses
 *          has one screen.
 * Threads: one, the object's.
 */
#pragma once

#include <functional>

#include "painted_text.h"

class top_screen
{
public:
    /* Throws std::runtime_error when there is no terminal, or one that cannot be drawn on. */
    top_screen();
    ~top_screen();
    top_screen(const top_screen &) = delete;
    top_screen &operator=(const top_screen &) = delete;

    size_t columns() const;
    size_t lines() const;

    void draw(const painted_text &frame);

    /* Calls `press` with each key that waits, as top_view.h has them; resizes are followed here. */
    void read_keys(const std::function<void(int key)> &press);
};
