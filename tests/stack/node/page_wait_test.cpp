/*
 * The parts of cmm_node that need a dry pool at a known moment: waiting, timing out, being refused,
 * the audit; and images beyond 4 GiB.
 */
#include <gmock/gmock.h>

#include <fcntl.h>

#include <future>

#include "node_parts.h"
#include "replica_image.h"
#include "request_record.h"
#include "zyax_console.h"

using ::testing::HasSubstr;

namespace {

std::string failure_of(std::future<void> &waiting)
{
    try {
        waiting.get();
    } catch (const node_error &error) {
        return error.what();
    }
    return "no failure";
}

} // namespace

TEST_F(NodeParts, pages_that_are_there_come_at_once_and_nothing_is_queued)
{
    {
        const page_run run = first_.take(16, 30);
        EXPECT_EQ(run.chain()->entrySumInChain, 16);
    }
    EXPECT_EQ(io_.pages.requests, 1u);
    EXPECT_EQ(io_.pages.queued, 0u);
    EXPECT_EQ(io_.pages.peak_pages, 16u);
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeParts, who_waits_is_served_when_pages_come_back)
{
    std::future<void> waiting;
    io_.poller.start();
    {
        const page_run run = first_.take(16, 30);
        waiting = wait_for_a_page(second_, 30);
        wait_until_queued(1);
    }
    EXPECT_EQ(failure_of(waiting), "no failure");
    io_.poller.stop();

    EXPECT_EQ(io_.pages.queued, 1u);
    EXPECT_EQ(io_.pages.served, 1u);
    EXPECT_EQ(io_.pages.timed_out, 0u);
    EXPECT_GE(io_.poller.runs(), 1u);
    EXPECT_TRUE(audit_objects().clean());
    EXPECT_TRUE(library_->stop());
}

TEST_F(NodeParts, who_waits_too_long_is_told_so)
{
    io_.poller.start();
    {
        const page_run run = first_.take(16, 30);
        std::future<void> waiting = wait_for_a_page(second_, 1);
        EXPECT_EQ(failure_of(waiting), "a request for 1 pages timed out after 1 s");
    }
    io_.poller.stop();

    EXPECT_EQ(io_.pages.queued, 1u);
    EXPECT_EQ(io_.pages.served, 0u);
    EXPECT_EQ(io_.pages.timed_out, 1u);
    wait_until_clean();
    EXPECT_TRUE(library_->stop());
}

TEST_F(NodeParts, who_finds_the_queue_full_is_refused_at_once)
{
    std::future<void> one, two;
    io_.poller.start();
    {
        const page_run run = first_.take(16, 30);
        one = wait_for_a_page(second_, 30);
        two = wait_for_a_page(third_, 30);
        wait_until_queued(2);
        std::future<void> refused = wait_for_a_page(fourth_, 30);
        EXPECT_EQ(failure_of(refused),
                  "a request for 1 pages could not be queued: the queue has no free record");
    }
    EXPECT_EQ(failure_of(one), "no failure");
    EXPECT_EQ(failure_of(two), "no failure");
    io_.poller.stop();

    EXPECT_EQ(io_.pages.refused, 1u);
    EXPECT_EQ(io_.pages.served, 2u);
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeParts, a_chunk_that_fails_in_the_middle_gives_everything_back)
{
    EXPECT_THROW(
        {
            const request_record request;
            const page_run run = first_.take(3, 30);
            throw node_error("the disk is full");
        },
        node_error);

    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeParts, a_request_record_more_than_there_are_is_a_failure)
{
    const request_record one, two, three, four;

    EXPECT_THROW(request_record(), node_error);
    EXPECT_EQ(audit_objects().requests, 4u);
}

TEST_F(NodeParts, the_audit_counts_and_names_what_was_kept)
{
    std::string shown;
    page_ctrl *kept = allocOnePageSync(4711, "the forgetful one", 12);
    const leak_audit audit = audit_objects();

    zyax_console_begin(
        [](void *text, const char *piece, size_t length) {
            static_cast<std::string *>(text)->append(piece, length);
        },
        &shown);
    print_holders(audit);
    zyax_console_end();

    EXPECT_FALSE(audit.clean());
    EXPECT_EQ(audit.pages, 1u);
    EXPECT_EQ(audit.sgls, 0u);
    EXPECT_THAT(shown, HasSubstr("1 pages still out, held by:\n"));
    EXPECT_THAT(shown, HasSubstr("the forgetful one"));
    freeOnePage(kept, 4711, "the forgetful one", 13);
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeParts, an_image_reaches_beyond_4_gib)
{
    const uint64_t far = uint64_t(5) << 30;
    const std::string content = noise(8192);
    const page_run run = first_.take(1, 30);
    copyDataFromBufferToSglIgnoreDif(run.chain(), 0, content.data(), 8192);

    replica_image::create(path("far.img"), {}).write(run.chain(), far, 8192);

    EXPECT_EQ(std::filesystem::file_size(path("far.img")), 5452603520u);
    std::ifstream image(path("far.img"), std::ios::binary);
    image.seekg(5452595200);
    std::string found(8320, '\0');
    image.read(found.data(), 8320);
    EXPECT_TRUE(found == expected_image(content));

    const std::string zeros(8192, '\0');
    copyDataFromBufferToSglIgnoreDif(run.chain(), 0, zeros.data(), 8192);
    replica_image::open(path("far.img"), far + 8192).read(run.chain(), far, 8192);
    std::string back(8192, '\0');
    copyDataFromSglToBufferIgnoreDif(run.chain(), 0, back.data(), 8192);
    EXPECT_TRUE(back == content);
}
