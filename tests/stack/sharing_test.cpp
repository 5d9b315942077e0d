/*
 * Pages that several holders share, and records of pages that nobody holds any more.
 */
#include <cstring>

#include "dbg_console.h"
#include "node_process.h"
#include "zyax_console.h"

static constexpr uint32_t MODULE = 81;
static constexpr uint64_t KEY    = 42;

namespace
{

SGL *tagged_chain(uint32_t pages)
{
    SGL *chain = nullptr;
    allocMultiPagesSync(pages, &chain, MODULE, __func__, __LINE__);
    if (chain != nullptr)
        chain->userTag = KEY;
    return chain;
}

/* Clones a chain that others clone too, reads what lies in it and lets go again. */
uint32_t clone_and_read(SGL *source, const std::vector<uint8_t> &expected)
{
    std::vector<uint8_t> seen(expected.size());
    SGL                 *clone = nullptr;
    cloneSgl(source, KEY, &clone, MODULE, __func__, __LINE__);
    if (clone == nullptr)
        return 1;
    const bool is_equal =
        copyDataFromSglToBufferIgnoreDif(clone, 0, seen.data(), uint32_t(seen.size())) == 0 &&
        seen == expected;
    freeMultiPages(clone, MODULE, __func__, __LINE__);
    return is_equal ? 0 : 1;
}

} // namespace

TEST(Sharing, eight_holders_clone_read_and_release_one_chain_and_the_last_frees_its_pages)
{
    const config_directory config({100, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    const std::vector<uint8_t> bytes(70 * 8192, 0x5A);
    SGL                       *chain = tagged_chain(70);
    ASSERT_NE(chain, nullptr);
    ASSERT_EQ(copyDataFromBufferToSglIgnoreDif(chain, 0, bytes.data(), 70 * 8192), 0);

    std::atomic<uint32_t>    wrong{0};
    std::vector<std::thread> holders;
    for (int i = 0; i < 8; ++i)
        holders.emplace_back([&] {
            for (int round = 0; round < 30; ++round)
                wrong += clone_and_read(chain, bytes);
        });
    for (std::thread &holder : holders)
        holder.join();

    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(getPageReference(chain->entries[0].pageCtrl, __func__), 1u);
    EXPECT_EQ(pages_out(), 70u);
    freeMultiPages(chain, MODULE, __func__, __LINE__);
    EXPECT_EQ(pages_out(), 0u);
    EXPECT_EQ(sgls_out(), 0u);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

TEST(Sharing, a_borrowed_copy_takes_no_reference_and_goes_alone)
{
    const config_directory config({100, 64, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    SGL *chain = tagged_chain(70);
    SGL *copy  = nullptr;

    ASSERT_EQ(cloneSglChain(chain, &copy), 0);
    EXPECT_EQ(getPageReference(chain->entries[0].pageCtrl, __func__), 1u);
    EXPECT_EQ(copy->nextSgl->entries[5].buf, chain->nextSgl->entries[5].buf);
    freeCloneSgl(copy);
    EXPECT_EQ(pages_out(), 70u);
    freeMultiPages(chain, MODULE, __func__, __LINE__);
    EXPECT_EQ(cmm_module_exit(), 0u);
}

/* A sanitizer knows that the record lies in a free object; the library's checks may look at it. */
TEST(Sharing, a_freed_page_is_judged_and_shown_but_not_held_again)
{
    const config_directory config({16, 16, 8});
    ASSERT_EQ(cmm_module_init(), 0u);
    page_ctrl  *page    = allocOnePageSync(MODULE, "the allocator", __LINE__);
    std::string address = std::to_string(reinterpret_cast<uint64_t>(page->page_addr));
    freeOnePage(page, MODULE, __func__, __LINE__);

    EXPECT_EQ(getPageAddrByPageCtrl(page), nullptr);
    EXPECT_EQ(getPageValidBitMap(page), 0u);
    EXPECT_EQ(incAndRetPageReference(page, __func__, __LINE__), 0xFFFFFFFFu);
    std::string shown;
    zyax_console_begin(
        [](void *to, const char *text, size_t length) {
            static_cast<std::string *>(to)->append(text, length);
        },
        &shown);
    char *words[] = {const_cast<char *>("umm"), const_cast<char *>("show"),
                     const_cast<char *>("page"), address.data()};
    umm_cmm_diagnose_show_page_info(4, words);
    zyax_console_end();

    EXPECT_NE(shown.find("the allocator"), std::string::npos);
    EXPECT_EQ(cmm_module_exit(), 0u);
}
