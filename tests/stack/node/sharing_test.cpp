/*
 * Pages with several users: clones that writers release on their threads, borrowed copies, zeros
 * that need no page, and the marks in a page's record.
 */
#include <gmock/gmock.h>

#include <fcntl.h>

#include "node_parts.h"
#include "page_marks.h"
#include "replica_image.h"
#include "zero_stretch.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr uint32_t PAGE = 8192;

const uint8_t *bytes(const std::string &text)
{
    return reinterpret_cast<const uint8_t *>(text.data());
}

std::string zeros(size_t size)
{
    return std::string(size, '\0');
}

uint32_t references_of(const page_run &run, uint32_t entry)
{
    return getPageReference(run.chain()->entries[entry].pageCtrl, __func__);
}

replica_image full_disk()
{
    return replica_image("/dev/full", open_file("/dev/full", O_WRONLY));
}

} // namespace

class NodeSharing : public NodeParts
{
protected:
    page_run take_filled_with(const std::string &data)
    {
        return take_filled(bytes(data), uint32_t(data.size()), first_, 30, io_.poller, io_.shares);
    }

    std::string data_of(SGL *chain, uint32_t size) const
    {
        std::string data(size, 'x');
        EXPECT_EQ(copyDataFromSglToBufferIgnoreDif(chain, 0, data.data(), size), 0);
        return data;
    }
};

/* ---- clones and borrowed copies */

TEST_F(NodeSharing, pages_of_a_clone_outlive_their_first_run)
{
    const std::string data = noise(3 * PAGE);
    page_run first = take_filled_with(data);
    {
        const page_run second = first.clone();
        EXPECT_EQ(references_of(second, 0), 2u);
        first.release();
        EXPECT_EQ(references_of(second, 0), 1u);
        EXPECT_TRUE(data_of(second.chain(), 3 * PAGE) == data);
    }
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeSharing, a_writer_gives_its_clone_back_on_its_own_thread)
{
    const std::string data = noise(2 * PAGE);
    const replica_image image = replica_image::create(path("image"), {});
    write_group group;
    {
        const page_run own = take_filled_with(data);
        io_.writers[0].submit({own.clone(), &image, 0, 2 * PAGE, &group});
    }
    EXPECT_EQ(pages_out(), 2u); /* nobody but the writer, which has no thread yet */

    io_.writers[0].start();
    EXPECT_THAT(group.wait(), IsEmpty());
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_TRUE(read_whole(path("image")) == expected_image(data));
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeSharing, writers_of_one_request_need_no_order)
{
    const std::string data = noise(PAGE);
    const replica_image one = replica_image::create(path("one"), {});
    const replica_image two = replica_image::create(path("two"), {});
    write_group group;
    {
        const page_run own = take_filled_with(data);
        io_.writers[0].submit({own.clone(), &one, 0, PAGE, &group});
        io_.writers[1].submit({own.clone(), &two, 0, PAGE, &group});
    }
    io_.writers[1].start();
    io_.writers[1].stop();
    EXPECT_EQ(pages_out(), 1u);
    EXPECT_TRUE(read_whole(path("two")) == expected_image(data));

    io_.writers[0].start();
    EXPECT_THAT(group.wait(), IsEmpty());
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeSharing, a_writer_that_fails_tells_why_and_gives_its_clone_back)
{
    const replica_image image = full_disk();
    write_group group;
    io_.writers[0].start();
    {
        const page_run own = take_filled_with(noise(PAGE));
        io_.writers[0].submit({own.clone(), &image, 0, PAGE, &group});
    }
    EXPECT_THAT(group.wait(),
                ElementsAre("/dev/full: write failed at byte offset 0: No space left on device"));
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeSharing, a_writer_ends_only_when_its_jobs_are_done)
{
    const std::string data = noise(PAGE);
    const replica_image image = replica_image::create(path("image"), {});
    write_group group;
    for (uint32_t i = 0; i < 4; ++i) {
        const page_run own = take_filled_with(data);
        io_.writers[0].submit({own.clone(), &image, i * PAGE, PAGE, &group});
    }
    io_.writers[0].start();
    io_.writers[0].stop();

    EXPECT_TRUE(read_whole(path("image")) == expected_image(data + data + data + data));
    EXPECT_TRUE(audit_objects().clean());
}

TEST_F(NodeSharing, without_sgls_there_is_no_clone_and_no_reference_more)
{
    const page_run run = take_filled_with(noise(PAGE));
    SGL *all = take_all_sgls();

    EXPECT_THROW(run.clone(), node_error);
    EXPECT_THROW(borrowed_chain{run}, node_error);
    EXPECT_EQ(references_of(run, 0), 1u);
    freeSglChain(all, NODE_MODULE_ID, __func__, __LINE__);
}

TEST_F(NodeSharing, a_borrowed_chain_shows_the_pages_and_holds_none)
{
    const std::string data = noise(2 * PAGE);
    const page_run run = take_filled_with(data);
    {
        const borrowed_chain look(run);
        EXPECT_NE(look.chain(), run.chain());
        EXPECT_EQ(references_of(run, 1), 1u);
        EXPECT_TRUE(data_of(look.chain(), 2 * PAGE) == data);
    }
    EXPECT_EQ(references_of(run, 1), 1u);
    EXPECT_EQ(audit_objects().sgls, 1u);
}

/* ---- zeros */

TEST_F(NodeSharing, stretches_of_zeros_are_found_page_by_page)
{
    std::string data = noise(2 * PAGE) + zeros(3 * PAGE) + noise(PAGE) + zeros(512);
    data[3 * PAGE] = 1; /* in the middle of the zeros */
    const std::vector<stretch> found = find_stretches(bytes(data), uint32_t(data.size()));

    std::string text;
    for (const stretch &one : found)
        text += std::to_string(one.first) + "+" + std::to_string(one.pages) +
                (one.zero ? " zero, " : ", ");
    EXPECT_EQ(text, "0+2, 2+1 zero, 3+1, 4+1 zero, 5+1, 6+1 zero, ");
}

TEST_F(NodeSharing, a_zero_byte_at_both_ends_is_not_yet_a_zero_page)
{
    std::string data = zeros(PAGE);
    data[PAGE / 2] = 'x';

    EXPECT_FALSE(find_stretches(bytes(data), PAGE)[0].zero);
}

TEST_F(NodeSharing, zero_stretches_spend_no_page)
{
    const std::string data = noise(PAGE) + zeros(4 * PAGE) + noise(2 * PAGE, 2);
    {
        const page_run run = take_filled_with(data);
        EXPECT_EQ(pages_out(), 3u);
        EXPECT_EQ(run.chain()->entrySumInChain, 7);
        EXPECT_EQ(run.chain()->entries[1].pageCtrl, getZeroPageCtrl());
        EXPECT_EQ(getPageReference(getZeroPageCtrl(), __func__), 5u);
        EXPECT_TRUE(data_of(run.chain(), 7 * PAGE) == data);
    }
    EXPECT_EQ(getPageReference(getZeroPageCtrl(), __func__), 1u);
    EXPECT_EQ(io_.shares.pages, 7u);
    EXPECT_EQ(io_.shares.zero_entries, 4u);
    EXPECT_TRUE(audit_objects().clean());
    EXPECT_TRUE(library_->stop());
}

TEST_F(NodeSharing, an_image_of_the_zero_page_has_the_integrity_bytes_of_any_page)
{
    const std::string data = zeros(2 * PAGE) + noise(PAGE) + zeros(512);
    {
        const page_run run = take_filled_with(data);
        replica_image::create(path("image"), {}).write(run.chain(), 0, uint32_t(data.size()));
    }
    EXPECT_TRUE(read_whole(path("image")) == expected_image(data));
}

TEST_F(NodeSharing, zeros_alone_ask_for_no_page_at_all_though_the_pool_is_dry)
{
    const page_run all = second_.take(16, 30);
    {
        const page_run run = take_filled_with(zeros(100 * PAGE));
        EXPECT_EQ(run.chain()->entrySumInChain, 100);
        EXPECT_EQ(run.chain()->nextSgl->entryNum, 36);
    }
    EXPECT_EQ(io_.pages.requests, 1u); /* the one for all */
    EXPECT_EQ(pages_out(), 16u);
    EXPECT_EQ(audit_objects().sgls, 1u);
}

TEST_F(NodeSharing, without_sgls_for_the_zeros_the_pages_go_back)
{
    SGL *all = take_all_sgls();
    SGL *rest = all->nextSgl; /* one SGL is left for the pages' own chain */
    all->nextSgl = nullptr;
    freeSglChain(all, NODE_MODULE_ID, __func__, __LINE__);

    EXPECT_THROW(take_filled_with(noise(PAGE) + zeros(PAGE)), node_error);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(getPageReference(getZeroPageCtrl(), __func__), 1u);
    freeSglChain(rest, NODE_MODULE_ID, __func__, __LINE__);
    EXPECT_TRUE(audit_objects().clean());
}

/* ---- marks */

TEST_F(NodeSharing, two_sectors_of_the_file_are_one_bit)
{
    const page_run run = first_.take(3, 30);
    mark_valid(run.chain(), 2 * PAGE + 3 * 1024 + 512);

    EXPECT_EQ(getPageValidBitMap(run.chain()->entries[0].pageCtrl), 0xFF);
    EXPECT_EQ(getPageValidBitMap(run.chain()->entries[1].pageCtrl), 0xFF);
    EXPECT_EQ(getPageValidBitMap(run.chain()->entries[2].pageCtrl), 0x07);
    EXPECT_FALSE(is_fully_valid(run.chain()->entries[2].pageCtrl));
}

TEST_F(NodeSharing, only_the_zero_page_is_taken_for_it)
{
    const page_run run = take_filled_with(noise(PAGE) + zeros(PAGE));

    EXPECT_FALSE(is_zero_page(run.chain()->entries[0].pageCtrl));
    EXPECT_TRUE(is_zero_page(run.chain()->entries[1].pageCtrl));
}
