#include "console_process.h"

#include "zyax_console.h"
#include "zyax_log.h"

static void append(void *ctx, const char *text, size_t length)
{
    static_cast<std::string *>(ctx)->append(text, length);
}

answer run_line(const std::string &line)
{
    answer said = {0, ""};
    said.status = zyax_console_run(line.data(), line.size(), append, &said.text);
    return said;
}

/* The walk holds the lock for some microseconds a millisecond, if it has anything to look at. */
answer run_when_not_busy(const std::string &line)
{
    answer said = run_line(line);
    for (int turn = 0; turn < 100000; ++turn) {
        const bool is_busy = said.text.find("Try to lock the list failed") != std::string::npos ||
                             said.text.find("\"busy\":true") != std::string::npos;
        if (!is_busy)
            break;
        said = run_line(line);
    }
    return said;
}

json parse_answer(const std::string &command, const answer &said)
{
    EXPECT_EQ(said.status, 0) << said.text;
    EXPECT_EQ(said.text.find('\n'), said.text.size() - 1);
    for (const char each : said.text)
        EXPECT_TRUE(each == '\n' || (each >= ' ' && each <= '~')) << int(each);
    const std::string beginning = "{\"command\":\"" + command + "\",\"now_ms\":";
    EXPECT_EQ(said.text.substr(0, beginning.size()), beginning);

    json parsed = json::parse(said.text, nullptr, false);
    EXPECT_FALSE(parsed.is_discarded()) << said.text;
    if (parsed.is_object()) {
        parsed.erase("command");
        parsed.erase("now_ms");
    }
    return parsed;
}

json run_json(const std::string &line)
{
    const size_t third = line.find(' ', line.find(' ', line.find(' ') + 1) + 1);
    return parse_answer(line.substr(0, third), run_when_not_busy("--json " + line));
}

std::string fill_in(std::string text,
                    const std::vector<std::pair<std::string, std::string>> &values)
{
    for (const auto &[name, value] : values) {
        const std::string place = "{" + name + "}";
        EXPECT_NE(text.find(place), std::string::npos) << place;
        for (size_t at = text.find(place); at != std::string::npos; at = text.find(place))
            text.replace(at, place.size(), value);
    }
    return text;
}

std::string hex(uint64_t value)
{
    char text[24];
    snprintf(text, sizeof text, "0x%lx", value);
    return text;
}

zymm_slab_record pool_named(const std::string &name)
{
    uint64_t handles[64];
    zymm_slab_record found = {};
    const uint64_t count = zymm_slab_list(handles, 64);
    EXPECT_LE(count, 64u);
    for (uint64_t at = 0; at < count; ++at) {
        zymm_slab_record record = {};
        EXPECT_EQ(zymm_slab_record_get(handles[at], 0, &record), 0);
        if (record.name == name)
            found = record;
    }
    EXPECT_NE(found.handle, 0u) << name;
    return found;
}

console_process::console_process() : config_({128, 64, 32})
{
    zyax_module_name_set(TEST_MODULE, "tester");
    zyax_module_name_set(CMM_MODULE_ID, "cmm");
    EXPECT_EQ(cmm_module_init(), 0u);
    EXPECT_EQ(zyumm_console_register(), 0);
}

console_process::~console_process()
{
    EXPECT_EQ(zyumm_console_unregister(), 0);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
