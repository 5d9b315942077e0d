/*
 * Keys go to the filter while it is typed, and to the view else; a key that means nothing does
 * nothing.
 */
#include "top_view.h"

#include <algorithm>
#include <iterator>

#include "top_rows.h"

const char *const TOP_KEYS_HELP[] = {
    "Tab, Shift-Tab  choose the panel that keys go to: pools, requests, holders",
    "s, S            sort the panel by the next key, by the one before",
    "r               reverse its order",
    "Up, Down, k, j  scroll it; Page Up, Page Down, Home, End likewise",
    "/               filter: type a part of a name, Enter keeps it, Esc drops it",
    "Esc             drop the filter",
    "p, blank        pause, and go on",
    "+, -            look more often, less often",
    "h, ?            these lines; any key goes back",
    "q               quit",
};
const size_t TOP_KEYS_HELP_LINES = std::size(TOP_KEYS_HELP);

namespace {

constexpr int    ESCAPE = 27;
constexpr size_t PAGE = 5;
constexpr size_t LONGEST_FILTER = 40;
constexpr double FASTEST = 0.1, SLOWEST = 3600; /* s */

void type_filter(top_view &view, int key)
{
    if (key == '\n' || key == '\r' || key == ESCAPE)
        view.is_typing = false;
    if (key == ESCAPE)
        view.filter.clear();
    if (key == TOP_KEY_ERASE && !view.filter.empty())
        view.filter.pop_back();
    if (key >= ' ' && key <= '~' && view.filter.size() < LONGEST_FILTER)
        view.filter.push_back(char(key));
    for (panel_view &panel : view.panels)
        panel.first = 0;
}

void choose_panel(top_view &view, size_t step)
{
    view.chosen = top_panel((size_t(view.chosen) + step) % TOP_PANELS);
}

void choose_sort(top_view &view, size_t step)
{
    const size_t keys = sort_keys(view.chosen).size();

    view.panel().sort_by = (view.panel().sort_by + step % keys + keys) % keys;
    view.panel().is_reversed = false;
    view.panel().first = 0;
}

void scroll(top_view &view, int key, size_t rows)
{
    size_t &first = view.panel().first;
    const size_t last = rows == 0 ? 0 : rows - 1;

    switch (key) {
    case TOP_KEY_UP:        first -= std::min<size_t>(first, 1); break;
    case TOP_KEY_PAGE_UP:   first -= std::min(first, PAGE); break;
    case TOP_KEY_DOWN:      first = std::min(last, first + 1); break;
    case TOP_KEY_PAGE_DOWN: first = std::min(last, first + PAGE); break;
    case TOP_KEY_HOME:      first = 0; break;
    case TOP_KEY_END:       first = last; break;
    default:                break;
    }
}

/* What letters do; answers whether the key was one of them. */
bool press_letter(top_view &view, int key)
{
    switch (key) {
    case 'q':  view.quits = true; return true;
    case '/':  view.is_typing = true; return true;
    case '\t': choose_panel(view, 1); return true;
    case 's':  choose_sort(view, 1); return true;
    case 'S':  choose_sort(view, sort_keys(view.chosen).size() - 1); return true;
    case 'r':  view.panel().is_reversed = !view.panel().is_reversed; return true;
    case ' ':
    case 'p':  view.is_paused = !view.is_paused; return true;
    case '+':  view.interval = std::max(FASTEST, view.interval / 2); return true;
    case '-':  view.interval = std::min(SLOWEST, view.interval * 2); return true;
    case 'h':
    case '?':  view.shows_help = true; return true;
    case ESCAPE: view.filter.clear(); return true;
    default:   return false;
    }
}

int movement_of(int key)
{
    return key == 'k' ? TOP_KEY_UP : key == 'j' ? TOP_KEY_DOWN : key;
}

} // namespace

void press_key(top_view &view, int key, const std::array<size_t, TOP_PANELS> &rows)
{
    if (view.shows_help) {
        view.shows_help = false;
        view.quits = key == 'q';
    } else if (view.is_typing) {
        type_filter(view, key);
    } else if (key == TOP_KEY_BACK_TAB) {
        choose_panel(view, TOP_PANELS - 1);
    } else if (!press_letter(view, key)) {
        scroll(view, movement_of(key), rows[size_t(view.chosen)]);
    }
}
