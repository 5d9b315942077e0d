/*
 * What the user of `top` has chosen, and how keys change it.
 *
 * Threads: values; any.
 */
#pragma once

#include <array>
#include <cstddef>
#include <string>

enum class top_panel { POOLS, REQUESTS, HOLDERS };

inline constexpr size_t TOP_PANELS = 3;

/* How one panel is shown. */
struct panel_view {
    size_t sort_by = 0; /* index into the panel's sort keys, see top_rows.h */
    bool   is_reversed = false;
    size_t first = 0; /* row that is shown first */
};

struct top_view {
    std::array<panel_view, TOP_PANELS> panels;
    top_panel   chosen = top_panel::POOLS; /* the panel that keys go to */
    std::string filter;                    /* shown are rows that contain it, in any case */
    bool        is_typing = false;         /* keys go to the filter */
    bool        is_paused = false;
    bool        shows_help = false;
    double      interval = 1; /* s */
    bool        quits = false;

    panel_view       &panel() { return panels[size_t(chosen)]; }
    const panel_view &panel_of(top_panel which) const { return panels[size_t(which)]; }
};

/* Keys that are no characters, beyond all of those. */
enum top_key {
    TOP_KEY_UP = 0x1000,
    TOP_KEY_DOWN,
    TOP_KEY_PAGE_UP,
    TOP_KEY_PAGE_DOWN,
    TOP_KEY_HOME,
    TOP_KEY_END,
    TOP_KEY_ERASE,
    TOP_KEY_BACK_TAB,
};

/* Changes the view as a key says. `rows` are those that each panel has to show. */
void press_key(top_view &view, int key, const std::array<size_t, TOP_PANELS> &rows);

/* The keys, one a line. */
extern const char *const TOP_KEYS_HELP[];
extern const size_t      TOP_KEYS_HELP_LINES;
