/*
 * One element of the document: the search among siblings, and numbers in attributes.
 */
#include "zyumm_cmm/config_local.h"

#include "config_documents.h"
#include "fake/expect_log.h"

/* What reading the attribute `n` with this text gives: the status, and what is left in the out. */
struct reading {
    uint32_t status;
    uint32_t out;

    bool operator==(const reading &) const = default;
};

static reading read_number(const std::string &text)
{
    document doc("<?xml version=\"1.0\"?><e n=\"" + text + "\"/>");
    uint32_t out    = 77;
    uint32_t status = umm_xml_get_element_attr(doc.find("e"), "n", &out);
    return {status, out};
}

TEST(ConfigElement, an_unsigned_decimal_is_read)
{
    EXPECT_EQ(read_number("4096"), (reading{0, 4096}));
    EXPECT_EQ(read_number("0"), (reading{0, 0}));
    EXPECT_EQ(read_number("4294967295"), (reading{0, 4294967295}));
}

TEST(ConfigElement, white_space_around_a_number_is_allowed)
{
    EXPECT_EQ(read_number(" 12 "), (reading{0, 12}));
}

TEST(ConfigElement, a_number_keeps_its_low_32_bits)
{
    EXPECT_EQ(read_number("4294967297"), (reading{0, 1}));
    EXPECT_EQ(read_number("4294967296"), (reading{0, 0}));
}

TEST(ConfigElement, what_is_no_unsigned_number_fails_and_leaves_the_out_alone)
{
    EXPECT_EQ(read_number(""), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("many"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("-1"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("+1"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("0x10"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("1.5"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("12 KiB"), (reading{0xFFFFFFFF, 77}));
    EXPECT_EQ(read_number("18446744073709551616"), (reading{0xFFFFFFFF, 77}));
}

TEST(ConfigElement, an_absent_attribute_fails_without_a_conversion)
{
    document doc("<?xml version=\"1.0\"?><e/>");
    uint32_t out = 77;

    EXPECT_EQ(umm_xml_get_element_attr(doc.find("e"), "n", &out), 0xFFFFFFFF);

    EXPECT_EQ(out, 77u);
    EXPECT_EQ(fake_count(OP_zyax_str_isuint), 0u);
    EXPECT_EQ(fake_count(OP_zyax_str_tou64), 0u);
    EXPECT_NO_LINE();
}

TEST(ConfigElement, the_platform_decides_what_a_number_is)
{
    fake_fail(OP_zyax_str_isuint);

    EXPECT_EQ(read_number("5"), (reading{0xFFFFFFFF, 77}));

    EXPECT_EQ(fake_count(OP_zyax_str_tou64), 0u);
}

TEST(ConfigElement, the_conversion_gets_the_attribute_s_own_text)
{
    EXPECT_EQ(read_number("5"), (reading{0, 5}));

    EXPECT_EQ(fake_last_call(OP_zyax_str_isuint).args[0].text, "5");
    EXPECT_EQ(fake_last_call(OP_zyax_str_tou64).args[0].text, "5");
}

TEST(ConfigElement, null_pointers_fail_without_a_line)
{
    document doc("<?xml version=\"1.0\"?><e n=\"5\"/>");
    uint32_t out = 77;

    EXPECT_EQ(umm_xml_get_element_attr(nullptr, "n", &out), 0xFFFFFFFF);
    EXPECT_EQ(umm_xml_get_element_attr(doc.find("e"), nullptr, &out), 0xFFFFFFFF);
    EXPECT_EQ(umm_xml_get_element_attr(doc.find("e"), "n", nullptr), 0xFFFFFFFF);

    EXPECT_EQ(out, 77u);
    EXPECT_NO_LINE();
}

TEST(ConfigSibling, the_first_sibling_of_that_name_is_found)
{
    entry doc("<a/>\n<b n=\"1\"/>\n<b n=\"2\"/>");

    mxml_node_t *found = config_find_sibling(doc.first_child(), "b");

    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(mxmlElementGetAttr(found, "n"), "1");
}

TEST(ConfigSibling, the_search_goes_on_from_what_it_found)
{
    entry doc("<b n=\"1\"/>\n<b n=\"2\"/>");

    mxml_node_t *first = config_find_sibling(doc.first_child(), "b");
    mxml_node_t *found = config_find_sibling(first, "b");

    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(mxmlElementGetAttr(found, "n"), "2");
    EXPECT_EQ(config_find_sibling(found, "b"), nullptr);
}

TEST(ConfigSibling, nothing_below_a_sibling_is_found)
{
    entry doc("<a>\n<b/>\n</a>");

    EXPECT_EQ(config_find_sibling(doc.first_child(), "b"), nullptr);
}

TEST(ConfigSibling, the_search_never_leaves_the_parent)
{
    document doc("<?xml version=\"1.0\"?>\n<u>\n<p>\n<a/>\n</p>\n<b/>\n</u>\n");

    EXPECT_EQ(config_find_sibling(mxmlGetFirstChild(doc.find("p")), "b"), nullptr);
}

TEST(ConfigSibling, an_element_that_is_the_very_first_child_is_not_seen_is_kept)
{
    document doc("<?xml version=\"1.0\"?><p><a/><b/></p>");

    EXPECT_EQ(config_find_sibling(mxmlGetFirstChild(doc.find("p")), "a"), nullptr);
    EXPECT_EQ(config_find_sibling(mxmlGetFirstChild(doc.find("p")), "b"), doc.find("b"));
}

TEST(ConfigSibling, null_finds_nothing)
{
    entry doc("<a/>");

    EXPECT_EQ(config_find_sibling(nullptr, "a"), nullptr);
    EXPECT_EQ(config_find_sibling(doc.first_child(), nullptr), nullptr);
}
