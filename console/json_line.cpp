/*
 * JSON on one line of the console.
 */
#include "json_line.h"

#include <stdio.h>

#include "dbg_console.h"
#include "zyax.h"

namespace console
{

static void print_escaped(const char *text)
{
    char piece[256];
    uint32_t used = 0;
    for (const char *at = text; *at != '\0'; at++) {
        const unsigned char byte = static_cast<unsigned char>(*at);
        if (used + 8 > sizeof piece) {
            DBG_PrintBuf("%.*s", int(used), piece);
            used = 0;
        }
        if (byte < ' ' || byte > '~') {
            used += uint32_t(snprintf(piece + used, sizeof piece - used, "\\u%04x", byte));
            continue;
        }
        if (byte == '"' || byte == '\\')
            piece[used++] = '\\';
        piece[used++] = *at;
    }
    DBG_PrintBuf("%.*s", int(used), piece);
}

json_line::json_line(const char *command) : is_first_(true)
{
    DBG_PrintBuf("{");
    text("command", command);
    number("now_ms", zyax_get_jiffies());
}

json_line::~json_line()
{
    DBG_PrintBuf("}\n");
}

void json_line::begin(const char *key)
{
    if (!is_first_)
        DBG_PrintBuf(",");
    is_first_ = false;
    if (key != nullptr)
        DBG_PrintBuf("\"%s\":", key);
}

void json_line::open_object(const char *key)
{
    begin(key);
    DBG_PrintBuf("{");
    is_first_ = true;
}

void json_line::close_object()
{
    DBG_PrintBuf("}");
    is_first_ = false;
}

void json_line::open_array(const char *key)
{
    begin(key);
    DBG_PrintBuf("[");
    is_first_ = true;
}

void json_line::close_array()
{
    DBG_PrintBuf("]");
    is_first_ = false;
}

void json_line::text(const char *key, const char *value)
{
    if (value == nullptr) {
        none(key);
        return;
    }
    begin(key);
    DBG_PrintBuf("\"");
    print_escaped(value);
    DBG_PrintBuf("\"");
}

void json_line::number(const char *key, uint64_t value)
{
    begin(key);
    DBG_PrintBuf("%lu", value);
}

void json_line::claim(const char *key, bool value)
{
    begin(key);
    DBG_PrintBuf("%s", value ? "true" : "false");
}

void json_line::none(const char *key)
{
    begin(key);
    DBG_PrintBuf("null");
}

void json_line::address(const char *key, uint64_t value)
{
    begin(key);
    DBG_PrintBuf("\"0x%lx\"", value);
}

void json_line::handle(const char *key, uint64_t value)
{
    if (value != 0)
        address(key, value);
    else
        none(key);
}

void json_line::module(uint32_t module_id)
{
    number("module_id", module_id);
    text("module", zyax_pid_get_name(module_id));
}

} // namespace console
