/*
 * The console's commands.
 *
 *     s_first --> "log sinks" --> "umm show page <addr>" --> ...      sorted by name
 *
 * An entry is in the list from its registration to its removal, and its memory lives until the last
 * run of its handlers has ended: `running` counts them. The one that removes an entry waits for
 * that count to fall to the runs that it is itself in the middle of, which may be one or more when
 * a handler removes its own command; the last of these then deletes the entry.
 *
 * Locks: s_lock guards the list and the counts and is never held while a handler runs, a line is
 * logged or text is printed. A forked child has the same commands, and only those runs that its one
 * thread is in.
 */
#include "console_local.h"

#include <new>
#include <string.h>

namespace zyax
{

static constinit pthread_mutex_t s_lock = PTHREAD_MUTEX_INITIALIZER;
static constinit pthread_cond_t s_ended = PTHREAD_COND_INITIALIZER; /* a removed entry's run */
static constinit console_entry *s_first = nullptr;

/* ------------------------------------------------------------------ fitting */

static bool is_leading_equal(const console_entry &entry, const console_words &line)
{
    if (line.count < entry.leading)
        return false;
    for (uint32_t i = 0; i < entry.leading; ++i) {
        if (strcmp(entry.words.word[i], line.word[i]) != 0)
            return false;
    }
    return true;
}

bool console_begins_with(const console_entry &entry, const console_words &line)
{
    if (line.count > entry.words.count)
        return false;
    for (uint32_t i = 0; i < line.count; ++i) {
        const char *word = entry.words.word[i];
        if (!console_is_argument(word) && strcmp(word, line.word[i]) != 0)
            return false;
    }
    return true;
}

/* 0 = does not fit; the more fixed words the better, then the number that the command has. */
static uint32_t fit(const console_entry &entry, const console_words &line)
{
    if (line.count == entry.words.count && console_begins_with(entry, line))
        return 2 * entry.fixed + 1;
    if ((entry.flags & ZYAX_CONSOLE_ANY_COUNT) != 0 && is_leading_equal(entry, line))
        return 2 * entry.leading;
    return 0;
}

console_entry *console_table_take(const console_words &line)
{
    console_entry *best = nullptr;
    uint32_t best_fit = 0;

    pthread_mutex_lock(&s_lock);
    for (console_entry *entry = s_first; entry != nullptr; entry = entry->next) {
        const uint32_t here = fit(*entry, line);
        /* Of equals the later one, since '<' sorts before letters: the fixed word stands first. */
        if (here != 0 && here >= best_fit) {
            best = entry;
            best_fit = here;
        }
    }
    if (best != nullptr)
        ++best->running;
    pthread_mutex_unlock(&s_lock);
    return best;
}

void console_table_give_back(console_entry *entry)
{
    pthread_mutex_lock(&s_lock);
    const bool is_last = --entry->running == 0 && entry->is_orphan;
    pthread_cond_broadcast(&s_ended);
    pthread_mutex_unlock(&s_lock);
    if (is_last)
        delete entry;
}

void console_table_walk(console_visitor visit, void *ctx)
{
    pthread_mutex_lock(&s_lock);
    for (const console_entry *entry = s_first; entry != nullptr; entry = entry->next)
        visit(ctx, *entry);
    pthread_mutex_unlock(&s_lock);
}

/* ------------------------------------------------------------------ registration */

/* Why the record cannot become a command, or null. */
static const char *find_fault(const zyax_console_command *command)
{
    if (command == nullptr || command->words == nullptr || command->help == nullptr ||
        command->text == nullptr)
        return "something is null";
    if (console_has_control(command->words, strlen(command->words)) ||
        console_has_control(command->help, strlen(command->help)))
        return "a control character";
    if ((command->flags & ~uint32_t(ZYAX_CONSOLE_ANY_COUNT)) != 0)
        return "an unknown flag";
    return nullptr;
}

/* Why the words are no command's, or null. */
static const char *find_fault_in_words(const console_entry &entry, const char *words)
{
    const char *first = entry.words.word[0];

    if (entry.words.count == 0)
        return "no words";
    if (entry.name != words)
        return "not one blank between words";
    if (entry.leading == 0)
        return "it begins with an argument";
    if (strcmp(first, "help") == 0 || strcmp(first, "--json") == 0)
        return "a word of the console itself";
    return nullptr;
}

static void count_words(console_entry *entry)
{
    for (uint32_t i = 0; i < entry->words.count; ++i) {
        if (console_is_argument(entry->words.word[i]))
            continue;
        if (entry->fixed == i)
            entry->leading = i + 1;
        ++entry->fixed;
    }
}

static void name_entry(console_entry *entry)
{
    for (uint32_t i = 0; i < entry->words.count; ++i)
        (entry->name += i == 0 ? "" : " ") += entry->words.word[i];
}

/* Null, with the reason in `fault`, when it cannot become a command. */
static console_entry *make_entry(const zyax_console_command *command, const char **fault)
{
    console_entry *entry = nullptr;
    try {
        entry = new console_entry{.name = {},
                                  .cut = command->words,
                                  .words = {},
                                  .fixed = 0,
                                  .leading = 0,
                                  .help = command->help,
                                  .text = command->text,
                                  .json = command->json,
                                  .flags = command->flags,
                                  .running = 0,
                                  .is_orphan = false,
                                  .next = nullptr};
        *fault = "too many words";
        if (console_split(entry->cut.data(), &entry->words)) {
            count_words(entry);
            name_entry(entry);
            *fault = find_fault_in_words(*entry, command->words);
        }
    } catch (...) {
        *fault = "no memory";
    }
    if (*fault == nullptr)
        return entry;
    delete entry;
    return nullptr;
}

/* True when no line could tell the two apart. */
static bool is_same_command(const console_entry &a, const console_entry &b)
{
    if (a.words.count != b.words.count || a.fixed != b.fixed)
        return false;
    for (uint32_t i = 0; i < a.words.count; ++i) {
        const bool is_argument = console_is_argument(a.words.word[i]);
        if (is_argument != console_is_argument(b.words.word[i]) ||
            (!is_argument && strcmp(a.words.word[i], b.words.word[i]) != 0))
            return false;
    }
    return true;
}

/* Links the entry at its place; false when the command is there already. */
static bool insert(console_entry *entry)
{
    bool is_new = true;
    pthread_mutex_lock(&s_lock);
    console_entry **place = &s_first;
    for (console_entry *other = s_first; other != nullptr; other = other->next) {
        is_new = is_new && !is_same_command(*entry, *other);
        if (other->name < entry->name)
            place = &other->next;
    }
    if (is_new) {
        entry->next = *place;
        *place = entry;
    }
    pthread_mutex_unlock(&s_lock);
    return is_new;
}

/* Takes the entry out of the list; under s_lock. */
static console_entry *unlink(const char *name)
{
    for (console_entry **place = &s_first; *place != nullptr; place = &(*place)->next) {
        console_entry *entry = *place;
        if (entry->name != name)
            continue;
        *place = entry->next;
        return entry;
    }
    return nullptr;
}

/* ------------------------------------------------------------------ fork */

static void before_fork(void)
{
    pthread_mutex_lock(&s_lock);
}

static void after_fork_in_parent(void)
{
    pthread_mutex_unlock(&s_lock);
}

static void after_fork_in_child(void)
{
    for (console_entry *entry = s_first; entry != nullptr; entry = entry->next)
        entry->running = console_runs_here(entry);
    pthread_cond_init(&s_ended, nullptr);
    pthread_mutex_unlock(&s_lock);
}

__attribute__((constructor)) static void begin(void)
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

} // namespace zyax

using namespace zyax;

int zyax_console_register(const zyax_console_command *command)
{
    const char *fault = find_fault(command);
    if (fault != nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "A console command cannot be registered: %s.", fault);
        return -1;
    }

    console_entry *entry = make_entry(command, &fault);
    if (entry != nullptr && !insert(entry)) {
        fault = "it is there already";
        delete entry;
    }
    if (fault != nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "Console command \"%.100s\" cannot be registered: %s.",
                 command->words, fault);
        return -1;
    }
    return 0;
}

int zyax_console_unregister(const char *words)
{
    if (words == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "No console command is named null.");
        return -1;
    }

    pthread_mutex_lock(&s_lock);
    console_entry *entry = unlink(words);
    const uint32_t own_runs = entry == nullptr ? 0 : console_runs_here(entry);
    while (entry != nullptr && entry->running > own_runs)
        pthread_cond_wait(&s_ended, &s_lock);
    if (own_runs != 0)
        entry->is_orphan = true;
    pthread_mutex_unlock(&s_lock);

    if (entry == nullptr) {
        ZYAX_LOG(ZYLOG_ERROR, "No console command \"%.100s\" is registered.", words);
        return -1;
    }
    if (own_runs == 0)
        delete entry;
    return 0;
}
