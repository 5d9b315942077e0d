/*
 * ncurses draws only what has changed. Colours are used where the terminal has them, and every look
 * can be told from plain text without.
 */
#include "top_screen.h"

#include <clocale>
#include <stdexcept>

#include <unistd.h>

#include <ncurses.h>

#include "top_view.h"

namespace {

enum colour_pair : short { GREEN_TEXT = 1, YELLOW_TEXT, RED_TEXT, HEADING_TEXT, CHOSEN_TEXT };

void name_colours()
{
    if (!has_colors())
        return;
    start_color();
    use_default_colors();
    init_pair(GREEN_TEXT, COLOR_GREEN, -1);
    init_pair(YELLOW_TEXT, COLOR_YELLOW, -1);
    init_pair(RED_TEXT, COLOR_RED, -1);
    init_pair(HEADING_TEXT, COLOR_BLACK, COLOR_WHITE);
    init_pair(CHOSEN_TEXT, COLOR_BLACK, COLOR_CYAN);
}

attr_t with_colour(attr_t without, colour_pair pair, attr_t with)
{
    return has_colors() ? attr_t(COLOR_PAIR(pair)) | with : without;
}

attr_t attributes_of(look as)
{
    switch (as) {
    case look::DIM:     return A_DIM;
    case look::STRONG:  return A_BOLD;
    case look::HEADING: return with_colour(A_UNDERLINE, HEADING_TEXT, A_NORMAL);
    case look::CHOSEN:  return with_colour(A_REVERSE, CHOSEN_TEXT, A_NORMAL);
    case look::GOOD:    return with_colour(A_NORMAL, GREEN_TEXT, A_NORMAL);
    case look::WARNING: return with_colour(A_BOLD, YELLOW_TEXT, A_NORMAL);
    case look::BAD:     return with_colour(A_STANDOUT, RED_TEXT, A_BOLD);
    default:            return A_NORMAL;
    }
}

int key_of(int code)
{
    switch (code) {
    case KEY_UP:        return TOP_KEY_UP;
    case KEY_DOWN:      return TOP_KEY_DOWN;
    case KEY_PPAGE:     return TOP_KEY_PAGE_UP;
    case KEY_NPAGE:     return TOP_KEY_PAGE_DOWN;
    case KEY_HOME:      return TOP_KEY_HOME;
    case KEY_END:       return TOP_KEY_END;
    case KEY_BTAB:      return TOP_KEY_BACK_TAB;
    case KEY_ENTER:     return '\n';
    case KEY_BACKSPACE:
    case 127:
    case '\b':          return TOP_KEY_ERASE;
    default:            return code;
    }
}

} // namespace

top_screen::top_screen()
{
    setlocale(LC_ALL, "");
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO))
        throw std::runtime_error("no terminal to draw on; --once prints one frame as text");
    set_escdelay(25);
    if (newterm(nullptr, stdout, stdin) == nullptr)
        throw std::runtime_error("this terminal cannot be drawn on; --once prints one frame");
    name_colours();
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    curs_set(0);
}

top_screen::~top_screen()
{
    endwin();
}

size_t top_screen::columns() const
{
    return size_t(COLS);
}

size_t top_screen::lines() const
{
    return size_t(LINES);
}

void top_screen::draw(const painted_text &frame)
{
    erase();
    for (size_t i = 0; i < frame.size() && i < lines(); ++i) {
        move(int(i), 0);
        for (const painted_piece &piece : frame[i]) {
            attrset(int(attributes_of(piece.as)));
            addnstr(piece.text.c_str(), int(piece.text.size()));
        }
    }
    attrset(A_NORMAL);
    refresh();
}

void top_screen::read_keys(const std::function<void(int key)> &press)
{
    for (int code = getch(); code != ERR; code = getch())
        if (code != KEY_RESIZE)
            press(key_of(code));
}
