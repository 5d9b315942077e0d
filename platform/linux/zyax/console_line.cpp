/*
 * One line of the console, from its bytes to its answer.
 *
 *     bytes --> words --> [--json] --> "help", a command of the table, or a refusal
 *
 * The same for a client's line and for zyax_console_run; who gets the text is not known here. All
 * of it, the console's own texts too, is printed as a command prints. Lists are made with the table
 * locked and printed when it is not.
 */
#include "console_local.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>

namespace zyax
{

static constexpr const char *HELP_NAME = "help [words]";
static constexpr const char *HELP_TEXT = "lists the commands, or those that begin with the words";
static constexpr uint32_t NEAREST_MAX = 3; /* commands named to who mistyped one */
static constexpr size_t NAME_COLUMN = 32;  /* narrowest column of names in a list */
static constexpr size_t ECHO_MAX = 60;     /* bytes of a wrong line that are repeated */

/* ------------------------------------------------------------------ words */

bool console_has_control(const char *text, size_t length)
{
    return std::any_of(text, text + length, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < ' ' && byte != '\t') || byte == 0x7f;
    });
}

bool console_is_argument(const char *word)
{
    const size_t length = strlen(word);
    return length > 2 && word[0] == '<' && word[length - 1] == '>';
}

bool console_split(char *text, console_words *words)
{
    char *rest = nullptr;

    words->count = 0;
    for (char *word = strtok_r(text, " \t", &rest); word != nullptr;
         word = strtok_r(nullptr, " \t", &rest)) {
        if (words->count == ZYAX_CONSOLE_WORDS_MAX)
            return false;
        words->word[words->count++] = word;
    }
    words->word[words->count] = nullptr;
    return true;
}

static void drop_first(console_words *words)
{
    std::copy(words->word + 1, words->word + words->count + 1, words->word);
    --words->count;
}

/* ------------------------------------------------------------------ lists of commands */

struct listed {
    const console_words *words; /* how a listed command begins; null = all are listed */
    std::string text;
    size_t column = NAME_COLUMN;
    uint32_t count = 0;
    bool is_incomplete = false; /* memory ended */
};

static bool is_listed(const listed &list, const console_entry &entry)
{
    return list.words == nullptr || console_begins_with(entry, *list.words);
}

static void add_row(listed *list, const std::string &name, const std::string &help)
{
    list->text += "  " + name;
    list->text.append(list->column - std::min(list->column, name.size()), ' ');
    list->text += "  " + help + "\n";
    ++list->count;
}

static void measure(void *ctx, const console_entry &entry)
{
    auto *list = static_cast<listed *>(ctx);
    if (is_listed(*list, entry))
        list->column = std::max(list->column, entry.name.size());
}

static void add_text_row(void *ctx, const console_entry &entry)
try {
    auto *list = static_cast<listed *>(ctx);
    if (is_listed(*list, entry))
        add_row(list, entry.name, entry.help);
} catch (...) {
    static_cast<listed *>(ctx)->is_incomplete = true;
}

/* A JSON string of a text without control characters. */
static std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c == '\t' ? ' ' : c;
    }
    return result + "\"";
}

static void add_json_row(void *ctx, const console_entry &entry)
try {
    auto *list = static_cast<listed *>(ctx);
    if (!is_listed(*list, entry))
        return;
    list->text += list->count++ == 0 ? "" : ",";
    list->text += "{\"words\":" + quoted(entry.name) + ",\"help\":" + quoted(entry.help) +
                  ",\"json\":" + (entry.json == nullptr ? "false}" : "true}");
} catch (...) {
    static_cast<listed *>(ctx)->is_incomplete = true;
}

static void print_list(const listed &list)
{
    DBG_PrintBuf("%s%s", list.text.c_str(), list.is_incomplete ? "No memory for more.\n" : "");
}

/* ------------------------------------------------------------------ refusals */

static bool refuse(const char *reason)
{
    DBG_PrintBuf("%s\n", reason);
    return false;
}

struct near_name {
    uint32_t distance;
    std::string name;
    std::string help;
};

struct nearest {
    const console_words *words;
    near_name name[NEAREST_MAX];
    uint32_t count = 0;
};

/* Keeps the entry if it is among the nearest so far; of equals the first in the table stays. */
static void keep_nearest(void *ctx, const console_entry &entry)
try {
    auto *near = static_cast<nearest *>(ctx);
    uint32_t letters = 0;
    for (uint32_t i = 0; i < near->words->count; ++i)
        letters += uint32_t(strlen(near->words->word[i]));

    near_name here = {console_distance(entry, *near->words), entry.name, entry.help};
    if (here.distance > std::max(2u, letters / 2))
        return;
    for (uint32_t i = 0; i < near->count; ++i) {
        if (here.distance < near->name[i].distance)
            std::swap(here, near->name[i]);
    }
    if (near->count < NEAREST_MAX)
        near->name[near->count++] = std::move(here);
} catch (...) { /* a name less in the list */
}

/* The line as it is repeated in an answer: not all of a long one, and whole characters. */
static std::string echo(const console_words &words)
{
    std::string line;
    for (uint32_t i = 0; i < words.count; ++i)
        (line += i == 0 ? "" : " ") += words.word[i];
    if (line.size() <= ECHO_MAX)
        return line;

    size_t end = ECHO_MAX;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xc0) == 0x80)
        --end;
    return line.substr(0, end) + "...";
}

/* Says what could have been meant by words that fit no command. */
static bool refuse_unknown(const console_words &words)
try {
    listed longer{.words = &words, .text = {}};
    console_table_walk(measure, &longer);
    console_table_walk(add_text_row, &longer);
    if (longer.count != 0) {
        DBG_PrintBuf("\"%s\" is not complete. What begins so:\n", echo(words).c_str());
        print_list(longer);
        return false;
    }

    nearest near{.words = &words, .name = {}};
    console_table_walk(keep_nearest, &near);
    DBG_PrintBuf("Unknown command \"%s\". %s\n", echo(words).c_str(),
                 near.count == 0 ? "\"help\" lists all commands." : "The nearest:");
    listed names{.words = nullptr, .text = {}};
    for (uint32_t i = 0; i < near.count; ++i)
        names.column = std::max(names.column, near.name[i].name.size());
    for (uint32_t i = 0; i < near.count; ++i)
        add_row(&names, near.name[i].name, near.name[i].help);
    print_list(names);
    return false;
} catch (...) {
    return refuse("Unknown command.");
}

/* ------------------------------------------------------------------ commands */

static bool help(console_words words, bool is_json)
try {
    drop_first(&words);
    listed list{.words = words.count == 0 ? nullptr : &words, .text = {}};
    console_table_walk(measure, &list);
    if (!is_json && words.count == 0)
        add_row(&list, HELP_NAME, HELP_TEXT);
    console_table_walk(is_json ? add_json_row : add_text_row, &list);
    if (list.count == 0 && words.count != 0)
        return refuse_unknown(words);
    if (is_json)
        list.text = "{\"commands\":[" + list.text + "]}\n";
    print_list(list);
    return true;
} catch (...) {
    return refuse("No memory for the list.");
}

static bool run_command(console_words *words, bool is_json)
{
    console_entry *entry = console_table_take(*words);
    if (entry == nullptr)
        return refuse_unknown(*words);

    console_command *command = t_command;
    const zyax_console_handler handler = is_json ? entry->json : entry->text;
    if (handler != nullptr) {
        command->entry = entry;
        handler(int32_t(words->count), words->word);
        command->entry = nullptr;
    } else {
        DBG_PrintBuf("\"%s\" has no JSON.\n", entry->name.c_str());
        command->has_failed = true;
    }
    console_table_give_back(entry);
    return !command->has_failed;
}

static bool run_line(const char *line, size_t length)
{
    char text[ZYAX_CONSOLE_LINE_MAX + 1];
    console_words words;

    if (length > ZYAX_CONSOLE_LINE_MAX)
        return refuse("The line is longer than 4096 bytes.");
    if (console_has_control(line, length))
        return refuse("The line holds control characters.");
    memcpy(text, line, length);
    text[length] = '\0';
    if (!console_split(text, &words))
        return refuse("The line has more than 32 words.");

    if (words.count == 0)
        return true;
    const bool is_json = strcmp(words.word[0], "--json") == 0;
    if (is_json)
        drop_first(&words);
    if (words.count == 0)
        return refuse("No command after \"--json\".");
    return strcmp(words.word[0], "help") == 0 ? help(words, is_json) : run_command(&words, is_json);
}

} // namespace zyax

using namespace zyax;

int zyax_console_run(const char *line, size_t length, console_write write, void *ctx)
{
    if (line == nullptr || write == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "A console line or its call-back is null.");
        return -1;
    }
    console_command *command = console_begin(write, ctx, true);
    if (command == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "No memory for a console command.");
        return -1;
    }

    const bool is_good = run_line(line, length);
    console_end(command);
    return is_good ? 0 : -1;
}
