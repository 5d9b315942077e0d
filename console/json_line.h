/*
 * JSON on one line of the console: written piece by piece, with the commas and the escapes that the
 * format asks for.
 *
 *     json_line line("umm show pools");        {"command":"umm show pools","now_ms":...
 *     line.open_array("pools");                ,"pools":[
 *     line.open_object();                      {
 *     line.text("name", record.name);          "name":"PAGE PARTITION"
 *     line.close_object();                     }
 *     line.close_array();                      ]
 *                                              }\n with the end of its life
 *
 * Bytes beyond ASCII are escaped one by one, since names that a process gives may hold anything.
 * Keys are the library's own and need no escapes.
 *
 * Threads: the one that runs the command, whose output it is.
 */
#pragma once

#include <stdint.h>

namespace console
{

class json_line
{
public:
    /* `command` without its arguments. */
    explicit json_line(const char *command);
    ~json_line();
    json_line(const json_line &) = delete;
    json_line &operator=(const json_line &) = delete;

    void open_object(const char *key); /* null in an array */
    void close_object();
    void open_array(const char *key);
    void close_array();

    void text(const char *key, const char *value); /* null key in an array; null value = null */
    void number(const char *key, uint64_t value);
    void claim(const char *key, bool value);
    void none(const char *key);

    /* Handles and addresses, as "0x..."; `handle` writes null for 0. */
    void address(const char *key, uint64_t value);
    void handle(const char *key, uint64_t value);

    /* The fields "module_id" and "module". */
    void module(uint32_t module_id);

private:
    void begin(const char *key);

    bool is_first_; /* of the innermost object or array */
};

} // namespace console
