/*
 * Ini files, read by inih into a table that is then only asked.
 *
 *     [section]            leading blanks never matter: there are no continued lines
 *     key = value ; note   the last one of equal keys holds; keys and sections are case-sensitive
 *     # note
 *
 * Pairs before the first section are in section "". A line that is neither a section, a pair nor a
 * comment, or that is longer than inih's line buffer, makes the file a bad one: half a value would
 * be worse than none. Comments may have any length.
 *
 * Handles that are in use are kept in a list, so that one that was closed already is refused
 * without being looked into.
 */
#include "zyax_local.h"

#include <ini.h>
#include <map>
#include <new>
#include <stdio.h>
#include <string.h>
#include <string>
#include <utility>

struct zyax_cfg {
    std::map<std::pair<std::string, std::string>, std::string, std::less<>> values;
    zyax_cfg *next; /* in the list of handles in use */
};

static pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;
static zyax_cfg *s_in_use; /* under s_lock */

/* The file on its way into inih. */
struct ini_source {
    FILE *file;
    bool is_broken; /* a line that is too long, or no text */
};

static bool is_comment(const char *line)
{
    return line[0] == ';' || line[0] == '#';
}

/* All that inih takes for white space, but the line break. A line that begins with any of it would
 * be the continuation of the value before. */
static bool is_blank(int c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

/* inih's line reader: as fgets, but it drops leading blanks and the line break, and never splits a
 * line. */
static char *read_line(char *line, int size, void *stream)
{
    ini_source *source = static_cast<ini_source *>(stream);
    int length = 0;
    bool is_cut = false;
    int c;
    while ((c = fgetc(source->file)) != EOF && c != '\n') {
        if (length == 0 && is_blank(c))
            continue;
        if (c == '\0')
            source->is_broken = true;
        if (length < size - 1)
            line[length++] = char(c);
        else
            is_cut = true;
    }
    line[length] = '\0';
    if (is_cut && !is_comment(line))
        source->is_broken = true;
    return c == EOF && length == 0 ? nullptr : line;
}

static int keep_value(void *user, const char *section, const char *key, const char *value)
{
    try {
        static_cast<zyax_cfg *>(user)->values[{section, key}] = value != nullptr ? value : "";
        return 1;
    } catch (...) {
        return 0;
    }
}

/* True when the whole file was read and understood. */
static bool parse(FILE *file, const char *path, zyax_cfg *cfg)
{
    ini_source source = {file, false};
    const int bad_line = ini_parse_stream(read_line, &source, keep_value, cfg);
    if (ferror(file) != 0)
        return false;
    if (bad_line != 0 || source.is_broken) {
        zylog(ZYAX_MODULE_ID, ZYLOG_ERROR, __FILE__, __LINE__, "zyax_cfg_init", 0,
              "Ini file %s is broken: first bad line %d, lines too long or no text: %s.", path,
              bad_line, source.is_broken ? "yes" : "no");
        return false;
    }
    return true;
}

static zyax_cfg **find_place(const zyax_cfg *cfg)
{
    zyax_cfg **place = &s_in_use;
    while (*place != nullptr && *place != cfg)
        place = &(*place)->next;
    return place;
}

static bool is_in_use(const zyax_cfg *cfg)
{
    pthread_mutex_lock(&s_lock);
    const bool found = cfg != nullptr && *find_place(cfg) == cfg;
    pthread_mutex_unlock(&s_lock);
    return found;
}

static void put_in_use(zyax_cfg *cfg)
{
    pthread_mutex_lock(&s_lock);
    cfg->next = s_in_use;
    s_in_use = cfg;
    pthread_mutex_unlock(&s_lock);
}

static bool take_out_of_use(const zyax_cfg *cfg)
{
    pthread_mutex_lock(&s_lock);
    zyax_cfg **place = find_place(cfg);
    const bool found = *place != nullptr;
    if (found)
        *place = cfg->next;
    pthread_mutex_unlock(&s_lock);
    return found;
}

int zyax_cfg_init(const char *path, zyax_cfg **cfg)
{
    if (path == nullptr || cfg == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "An ini file is opened with a null path or result.");
        return -1;
    }

    FILE *file = fopen(path, "re");
    if (file == nullptr)
        return -1;
    zyax_cfg *made = new (std::nothrow) zyax_cfg{};
    const bool is_good = made != nullptr && parse(file, path, made);
    fclose(file);
    if (!is_good) {
        delete made;
        return -1;
    }
    put_in_use(made);
    *cfg = made;
    return 0;
}

/* The value, or null. */
static const std::string *find_value(const zyax_cfg *cfg, const char *section, const char *key)
{
    try {
        const auto found = cfg->values.find(std::pair<std::string, std::string>(section, key));
        return found != cfg->values.end() ? &found->second : nullptr;
    } catch (...) {
        return nullptr;
    }
}

int zyax_cfg_getItemValue(zyax_cfg *cfg, const char *section, const char *key, char *value,
                          uint32_t size)
{
    if (section == nullptr || key == nullptr || value == nullptr || !is_in_use(cfg)) {
        ZYAX_LOG(ZYLOG_ERROR, "Ini handle %p is not open, or a null text is passed with it.",
                 static_cast<void *>(cfg));
        return -1;
    }

    const std::string *found = find_value(cfg, section, key);
    if (found == nullptr || found->size() >= size)
        return -1;
    memcpy(value, found->c_str(), found->size() + 1);
    return 0;
}

void zyax_cfg_destroy_ex(zyax_cfg *cfg)
{
    if (cfg == nullptr)
        return;
    if (!take_out_of_use(cfg)) {
        ZYAX_LOG(ZYLOG_ERROR, "Ini handle %p is not open.", static_cast<void *>(cfg));
        return;
    }

    delete cfg;
}
