/*
 * libedit reads the lines; it calls back for the prompt and for the completion key, with what it
 * was given as client data: this prompt. Ctrl-C drops the line, as in a shell.
 *
 * The history lies in ~/.cmmctl_history, for its owner alone.
 */
#include "prompt.h"

#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <histedit.h>

#include "commands.h"
#include "completion.h"
#include "exit_codes.h"
#include "sampler.h"

namespace {

constexpr int         HISTORY_LINES = 1000;
constexpr const char *PROMPT = "cmm> ";
constexpr const char *LEVELS[] = {"fatal", "error", "warning", "info", "debug"};

struct end_of_editing {
    void operator()(EditLine *line) const { el_end(line); }
    void operator()(History *lines) const { history_end(lines); }
};

class prompt
{
public:
    explicit prompt(const prompt_options &options);

    int run();

private:
    static char         *prompt_text(EditLine *);
    static unsigned char complete(EditLine *line, int);

    void                     open();
    void                     load_history();
    void                     keep(const char *line);
    bool                     run_line(const std::string &line);
    std::string              quiet_answer(const std::string &command);
    std::vector<std::string> values_of(const std::string &argument);
    unsigned char            complete_at(const LineInfo *at);

    prompt_options                           options_;
    console_link                             link_;
    std::vector<command_words>               commands_;
    std::string                              history_path_;
    std::unique_ptr<EditLine, end_of_editing> line_;
    std::unique_ptr<History, end_of_editing>  history_;
};

void drop_line(int)
{
    /* Only there to interrupt the read. */
}

prompt::prompt(const prompt_options &options)
    : options_(options), link_(options.socket),
      line_(el_init("cmmctl", stdin, stdout, stderr)), history_(history_init())
{
    struct sigaction action = {};
    HistEvent event;

    open();
    action.sa_handler = drop_line;
    sigaction(SIGINT, &action, nullptr);
    history(history_.get(), &event, H_SETSIZE, HISTORY_LINES);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    load_history();

    el_set(line_.get(), EL_CLIENTDATA, this);
    el_set(line_.get(), EL_PROMPT, prompt_text);
    el_set(line_.get(), EL_EDITOR, "emacs");
    el_set(line_.get(), EL_HIST, history, history_.get());
    el_set(line_.get(), EL_ADDFN, "cmmctl-complete", "completes a word", complete);
    el_set(line_.get(), EL_BIND, "^I", "cmmctl-complete", nullptr);
    el_source(line_.get(), nullptr);
}

void prompt::open()
{
    link_.open();
    commands_ = read_commands(link_.ask("--json help", options_.timeout).text);
}

void prompt::load_history()
{
    const char *home = getenv("HOME");
    HistEvent event;

    if (home == nullptr)
        return;
    history_path_ = std::string(home) + "/.cmmctl_history";
    history(history_.get(), &event, H_LOAD, history_path_.c_str());
}

void prompt::keep(const char *line)
{
    HistEvent event;

    history(history_.get(), &event, H_ENTER, line);
    if (history_path_.empty())
        return;
    const mode_t outside = umask(077);
    history(history_.get(), &event, H_SAVE, history_path_.c_str());
    umask(outside);
}

char *prompt::prompt_text(EditLine *)
{
    return const_cast<char *>(PROMPT);
}

/* Completion that finds nobody completes nothing; the next command says why. */
std::string prompt::quiet_answer(const std::string &command)
{
    try {
        return link_.ask(command, options_.timeout).text;
    } catch (const link_error &) {
        return "";
    }
}

std::vector<std::string> prompt::values_of(const std::string &argument)
{
    std::vector<std::string> values;

    if (argument == "<level>")
        return {std::begin(LEVELS), std::end(LEVELS)};
    if (argument != "<pool>" && argument != "<name>")
        return values;
    try {
        for (const pool_report &pool : read_pools(quiet_answer("--json umm show pools")).pools) {
            const bool is_word = pool.name.find_first_of(" \t") == std::string::npos;
            values.push_back(is_word && !pool.name.empty() ? pool.name : pool.handle);
        }
    } catch (const bad_answer &) {
    }
    return values;
}

unsigned char prompt::complete_at(const LineInfo *at)
{
    const std::string_view typed(at->buffer, size_t(at->cursor - at->buffer));
    const std::vector<std::string> words =
        completions(commands_, typed, [&](const command_words &, const std::string &argument) {
            return values_of(argument);
        });
    const std::string begun(typed.substr(typed.find_last_of(" \t") + 1));
    const std::string shared = shared_beginning(words);

    if (words.empty())
        return CC_REFRESH_BEEP;
    const std::string added = shared.substr(begun.size()) + (words.size() == 1 ? " " : "");
    if (!added.empty())
        return el_insertstr(line_.get(), added.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    putchar('\n');
    for (const std::string &word : words)
        printf("%s  ", word.c_str());
    putchar('\n');
    return CC_REDISPLAY;
}

unsigned char prompt::complete(EditLine *line, int)
{
    prompt *self = nullptr;

    el_get(line, EL_CLIENTDATA, &self);
    return self->complete_at(el_line(line));
}

/* False when the user has had enough. */
bool prompt::run_line(const std::string &line)
{
    const std::vector<std::string> words = split_words(line);

    if (words.empty())
        return true;
    keep(line.c_str());
    if (words.size() == 1 && (words[0] == "quit" || words[0] == "exit"))
        return false;
    try {
        if (!link_.is_open())
            open();
        run_words(link_, words, options_.json, options_.timeout);
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "cmmctl: %s\n", error.what());
    }
    return true;
}

int prompt::run()
{
    for (;;) {
        int length = 0;
        errno = 0;
        const char *line = el_gets(line_.get(), &length);
        if (line == nullptr || length <= 0) {
            putchar('\n');
            if (errno != EINTR)
                return CTL_OK;
            el_reset(line_.get());
            continue;
        }
        std::string text(line, size_t(length));
        text.erase(text.find_last_not_of("\r\n") + 1);
        if (!run_line(text))
            return CTL_OK;
    }
}

} // namespace

int run_prompt(const prompt_options &options)
{
    return prompt(options).run();
}
