/*
 * Memory checkers find mistakes with the library's objects as they find them with malloc's: a use
 * after free ends in a report whose first stack names the guilty line.
 *
 * In a build for AddressSanitizer the program with the mistake is run as it is, in a build without
 * sanitizers under Valgrind. ThreadSanitizer looks for something else, and is left out.
 */
#include <array>
#include <cstdio>
#include <regex>
#include <sstream>

#include <sys/wait.h>

#if defined(__SANITIZE_ADDRESS__)
#define GUARD_COMMAND GUARD_PROGRAM
#define GUARD_HEADLINE "AddressSanitizer: use-after-poison"
#elif !defined(__SANITIZE_THREAD__)
#define GUARD_COMMAND GUARD_VALGRIND " -q --leak-check=no --error-exitcode=99 " GUARD_PROGRAM
#define GUARD_HEADLINE "Invalid (read|write) of size"
#endif

#ifdef GUARD_COMMAND
namespace
{

struct run_result {
    int         status = -1;
    std::string output; /* of both streams */
};

run_result run_with(const std::string &mistake)
{
    run_result  result;
    FILE *const pipe = popen((GUARD_COMMAND " " + mistake + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return result;
    std::array<char, 4096> piece;
    for (size_t size = 1; size != 0; result.output.append(piece.data(), size))
        size = fread(piece.data(), 1, piece.size(), pipe);
    const int status = pclose(pipe);
    result.status    = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

/* The line that the program said it would do wrong, as "guard_program.cpp:123"; or nothing. */
std::string planted_line(const std::string &output)
{
    std::smatch found;
    std::regex  line("planted at (guard_program\\.cpp:[0-9]+)");
    return std::regex_search(output, found, line) ? found[1].str() : "";
}

/* The frames of the first report's first stack, the innermost first. */
std::vector<std::string> first_stack(const std::string &output)
{
    const std::regex         headline(GUARD_HEADLINE);
    const std::regex         frame("(^ *#[0-9]+|== +(at|by)) 0x[0-9A-Fa-f]+");
    std::vector<std::string> frames;
    std::istringstream       lines(output);
    bool                     is_in_report = false;
    for (std::string line; std::getline(lines, line);) {
        const bool is_frame = std::regex_search(line, frame);
        if (!frames.empty() && !is_frame)
            break;
        is_in_report = is_in_report || std::regex_search(line, headline);
        if (is_in_report && is_frame)
            frames.push_back(line);
    }
    return frames;
}

bool names(const std::string &frame, const std::string &place)
{
    return std::regex_search(frame, std::regex(place + "($|[^0-9])"));
}

/* The mistake is reported, and the innermost frame is its line. */
void expect_reported_at_its_line(const std::string &mistake)
{
    const run_result result  = run_with(mistake);
    const std::string planted = planted_line(result.output);
    ASSERT_NE(planted, "") << result.output;
    EXPECT_GT(result.status, 0) << result.output;
    const std::vector<std::string> stack = first_stack(result.output);
    ASSERT_FALSE(stack.empty()) << result.output;
    EXPECT_TRUE(names(stack.front(), planted)) << result.output;
}

/* The mistake is reported in the library, which its line called. */
void expect_reported_below_its_line(const std::string &mistake)
{
    const run_result result  = run_with(mistake);
    const std::string planted = planted_line(result.output);
    ASSERT_NE(planted, "") << result.output;
    EXPECT_GT(result.status, 0) << result.output;
    bool is_in_library = false;
    bool is_named      = false;
    for (const std::string &frame : first_stack(result.output)) {
        is_in_library = is_in_library || names(frame, "sgl_[a-z]+\\.cpp:[0-9]+");
        is_named      = is_named || names(frame, planted);
    }
    EXPECT_TRUE(is_in_library) << result.output;
    EXPECT_TRUE(is_named) << result.output;
}

} // namespace

TEST(MemoryChecker, is_content_with_a_program_without_a_mistake)
{
    const run_result result = run_with("none");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(first_stack(result.output).empty()) << result.output;
}

TEST(MemoryChecker, finds_the_line_that_writes_to_a_freed_pages_data)
{
    expect_reported_at_its_line("page_data_written");
}

TEST(MemoryChecker, finds_the_line_that_reads_a_freed_pages_data)
{
    expect_reported_at_its_line("page_data_read");
}

TEST(MemoryChecker, finds_the_line_that_writes_to_a_page_freed_by_another_thread)
{
    expect_reported_at_its_line("page_data_written_after_another_thread_freed_it");
}

TEST(MemoryChecker, finds_the_line_that_writes_past_a_pages_end)
{
    expect_reported_at_its_line("page_written_past_its_end");
}

TEST(MemoryChecker, finds_the_line_that_writes_to_a_freed_sgl)
{
    expect_reported_at_its_line("sgl_written");
}

TEST(MemoryChecker, finds_the_line_that_reads_a_freed_sgl)
{
    expect_reported_at_its_line("sgl_read");
}

TEST(MemoryChecker, finds_the_call_that_hands_a_freed_sgl_to_the_library)
{
    expect_reported_below_its_line("sgl_given_to_an_operation");
}

TEST(MemoryChecker, finds_the_call_that_makes_the_library_read_a_freed_page)
{
    expect_reported_below_its_line("page_of_a_chain_given_to_an_operation");
}
#else
TEST(MemoryChecker, is_another_one_than_thread_sanitizer)
{
    GTEST_SKIP() << "ThreadSanitizer does not look for what is freed in a slab";
}
#endif
