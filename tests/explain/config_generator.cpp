#include "config_generator.h"

#include <vector>

/* A sequence of numbers that is the same on every machine. */
class dice
{
public:
    dice(uint64_t seed, bool is_careful)
        : state_(seed * 0x9e3779b97f4a7c15), is_careful_(is_careful)
    {
    }
    uint64_t next()
    {
        state_ += 0x9e3779b97f4a7c15;
        uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
        return mixed ^ (mixed >> 31);
    }
    uint64_t below(uint64_t limit)
    {
        return next() % limit;
    }
    bool percent(uint64_t chance)
    {
        return below(100) < chance;
    }
    /* The chance of something odd, which a careful hand seldom writes. */
    bool odd(uint64_t chance)
    {
        return below(is_careful_ ? 1000 : 100) < chance;
    }
    template <typename T>
    const T &one_of(const std::vector<T> &choices)
    {
        return choices[below(choices.size())];
    }

private:
    uint64_t state_;
    bool is_careful_;
};

static std::string number_text(dice &d, uint64_t value)
{
    if (!d.odd(15))
        return std::to_string(value);
    return d.one_of<std::string>({" " + std::to_string(value) + " ", "0x10", "-1", "+5", "12a", "",
                                  std::to_string(4294967296 + value), "99999999999999999999",
                                  "18446744073709551615", "4 5", "one"});
}

static std::string attribute(dice &d, const char *name, uint64_t limit, uint64_t presence)
{
    if (!d.percent(presence))
        return "";
    return std::string(" ") + name + "=\"" + number_text(d, d.below(limit)) + "\"";
}

static std::string pool_element(dice &d, const char *name)
{
    return std::string("<") + name + attribute(d, "reserve_size", d.percent(60) ? 1 : 4096, 97) +
           attribute(d, "max_size", 65536, 97) + attribute(d, "extand_size", 512, 97) +
           attribute(d, "max_limit", 3, 50) + attribute(d, "leak_rate", 160, 60) +
           attribute(d, "dontfork_flag", 4, 50) + "/>";
}

static std::string count_element(dice &d, const char *name, uint64_t limit)
{
    std::string text = std::string("<") + name;
    if (d.percent(60))
        text += attribute(d, "min_num", limit / 16 + 1, 95) + attribute(d, "max_num", limit, 95);
    if (text.find("num=") == std::string::npos || d.percent(20))
        text += attribute(d, "num", limit, 95);
    if (d.percent(35))
        text += attribute(d, "numa_factor", 3, 90) + attribute(d, "num_factor", 300, 90);
    return text + "/>";
}

static std::string parameter(dice &d, size_t which)
{
    switch (which) {
    case 0:
        return "<rdma_flag" + attribute(d, "flag", 3, 95) + "/>";
    case 1:
        return pool_element(d, "normal_pool");
    case 2:
        return pool_element(d, "io_pool");
    case 3:
        return "<pool_threadcache" + attribute(d, "cache_size", 1024, 90) + "/>";
    case 4:
        return "<pool_cachenum" + attribute(d, "page", 64, 90) +
               attribute(d, "page_maxcachethreadnum", 64, 90) + attribute(d, "64K_inner", 64, 90) +
               attribute(d, "64K_outer", 64, 90) + "/>";
    case 5:
        return count_element(d, "req_num", 300);
    case 6:
        return count_element(d, "sgl_num", d.percent(30) ? 4 : 200);
    case 7:
        return count_element(d, "page_num", d.percent(20) ? 12 : 800);
    case 8:
        return "<cfg_path" +
               d.one_of<std::string>({" path=\"io/x.cfg\"", " path=\"/x.cfg\"", " path=\"\"", ""}) +
               "/>";
    default:
        return "<mem_coredump" + attribute(d, "dump_level", 5, 90) + "/>";
    }
}

static std::string between(dice &d)
{
    return d.one_of<std::string>({"\n", "\n        ", " ", "<!-- a note -->", "\n<other/>\n"});
}

static std::string parameters(dice &d)
{
    if (d.odd(10))
        return d.one_of<std::string>({"", "\n"});

    std::string text = d.percent(15) ? "" : between(d);
    for (size_t place = 0, start = d.below(10); place < 10; ++place) {
        if (d.percent(85))
            text += parameter(d, (start + place) % 10) + between(d);
    }
    return text;
}

static std::string entry(dice &d, const std::string &name)
{
    const std::string attributes = d.percent(4) ? "" : " name=\"" + name + "\"";
    return "<uprocess" + attributes + ">" + parameters(d) + "</uprocess>" + between(d);
}

static std::string section(dice &d, const std::string &memory)
{
    std::string text = "<node" + (d.odd(3) ? "" : " memory=\"" + memory + "\"") + ">\n";
    if (d.odd(4))
        return text + "</node>\n";

    text += std::string("<umm>") + (d.percent(15) ? "" : "\n");
    if (d.percent(30))
        text += entry(d, "other");
    if (!d.odd(30))
        text += entry(d, "io_process");
    if (!d.odd(25))
        text += entry(d, "default");
    if (d.percent(10))
        text += entry(d, "io_process");
    return text + "</umm>\n</node>\n";
}

static std::vector<std::string> size_list(dice &d)
{
    const std::vector<std::string> kinds[] = {
        {"1", "2048"},
        {"1", "64", "128", "256", "512", "1024"},
        {"64", "128", "256"},
        {"1", "64", "512", "128"},
        {"1024"},
        {"512", "256", "128", "1"},
        {},
        {"1", "64", "", "128"},
        {"1", "x", "256"},
        {"-5", "64"},
        {"1", "8192"},
        {" 1 ", "64", "4294967360"},
        {"1", "64", "64", "256"},
        {"1", "<!-- note -->64", "256"},
        {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15", "16"},
        {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15", "16",
         "17"},
    };
    return kinds[d.odd(40) ? d.below(std::size(kinds)) : d.below(5)];
}

static std::string document(dice &d)
{
    const std::vector<std::string> sizes = size_list(d);
    std::string listed;
    std::string sections;

    for (const std::string &size : sizes)
        listed += "<mem>" + size + "</mem>" + between(d);
    for (const std::string &size : sizes) {
        if (!d.odd(10))
            sections += section(d, size);
        if (d.percent(10))
            sections +=
                section(d, d.one_of<std::string>({"1", "777", "x", size, "4294967297", "64"}));
    }
    if (d.percent(20))
        sections += section(d, "200");
    std::string text = d.percent(90) ? "<?xml version=\"1.0\"?>\n" : "";
    text += "<file>\n";
    if (!d.percent(2))
        text += "<memcfg>\n" + listed + "</memcfg>\n";
    if (!d.percent(2))
        text += "<config>\n" + sections + "</config>\n";
    return text + "</file>\n";
}

/* Cuts a document, or takes a piece out, repeats one, or changes a character. */
static void damage(dice &d, std::string *text)
{
    const size_t place = d.below(text->size());
    const size_t length = 1 + d.below(40);

    switch (d.below(5)) {
    case 0:
        text->resize(place);
        break;
    case 1:
        text->erase(place, length);
        break;
    case 2:
        text->insert(place, text->substr(place, length));
        break;
    case 3:
        (*text)[place] = "<>/\"= &x9\t\xc3"[d.below(11)];
        break;
    default:
        /* White space between two elements goes, as tools that write XML leave it out. */
        for (size_t at = text->find(">\n", place); at != std::string::npos;
             at = text->find(">\n", at))
            text->erase(at + 1, 1);
        break;
    }
}

static void choose_memory(dice &d, generated_config *config)
{
    const uint64_t mib = 1048576;
    const uint64_t size =
        d.one_of<uint64_t>({1, 50, 64, 100, 200, 256, 300, 777, 1024, 2048, 4095});
    const uint64_t odd_bytes = d.one_of<uint64_t>(
        {size * mib + 12345, size * mib + 4294967296, d.below(4) * 4294967296, d.below(mib)});
    const uint64_t bytes = d.odd(40) ? odd_bytes : size * mib;

    if (d.percent(65)) {
        config->memory = bytes;
        return;
    }
    const std::string text = std::to_string(bytes);
    if (d.percent(60))
        config->cgroup = d.one_of<std::string>(
            {"[cgroup_info]\ncgroup_mem = " + text + "\n", "[cgroup_info]\nother = 1\n",
             "[cgroup_info]\ncgroup_mem = much\n", "neither section nor key\n"});
    config->storage = d.one_of<std::string>({"[io_process]\nmem = " + text + "\n",
                                             "[default]\nmem = " + text + "\n", "[io_process]\n",
                                             "[io_process]\nmem=" + std::string(70, '1') + "\n"});
}

generated_config generate_config(uint64_t number)
{
    dice d(number + 1, number % 2 == 0);
    generated_config config = {};

    config.document = document(d);
    if (number % 3 == 2)
        damage(d, &config.document);
    config.process = !d.odd(25)
                         ? "io_process"
                         : d.one_of<std::string>({"default", "other", "nobody",
                                                  std::string(31, 'n'), std::string(32, 'n')});
    choose_memory(d, &config);
    config.numa_nodes = d.one_of<uint32_t>({1, 1, 2, 4, 33});
    config.numa_mask = d.one_of<uint64_t>({0, 1, 3, 5, uint64_t{1} << 32, ~uint64_t{0}});
    return config;
}
