/*
 * XML documents from real descriptors, good ones and broken ones of many kinds.
 */
#include "zyax_log.h"
#include "zyax_xml.h"
#include "zyax_temp_folder.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <thread>
#include <unistd.h>

/* Loads `content` from a pipe, which cannot be read twice. */
static mxml_node_t *load(const std::string &content, mxml_node_t *parent = nullptr)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], content.data(), content.size()), ssize_t(content.size()));
    close(ends[1]);
    mxml_node_t *tree = zyax_xml_loadfd(parent, ends[0], mxml_opaque_cb);
    const int kept_errno = errno;
    close(ends[0]);
    errno = kept_errno;
    return tree;
}

static mxml_node_t *find(mxml_node_t *from, mxml_node_t *top, const char *name, int descend)
{
    return zyax_xml_findelement(from, top, name, nullptr, nullptr, descend);
}

#define EXPECT_BAD_XML(content)                     \
    do {                                            \
        errno = 0;                                  \
        mxml_node_t *tree_ = load(content);         \
        EXPECT_EQ(errno, EINVAL);                   \
        EXPECT_EQ(tree_, nullptr);                  \
        zyax_xml_del(tree_);                        \
    } while (0)

static const char DOCUMENT[] = "<?xml version=\"1.0\"?>\n"
                               "<!-- note -->\n"
                               "<config>\n"
                               "  <memcfg><mem>64</mem><mem>-5</mem></memcfg>\n"
                               "  <node memory=\"64\"><umm><uprocess name=\"a\" 64K_inner=\"1\"/>"
                               "<uprocess name=\"b\"/></umm></node>\n"
                               "  <node memory=\"128\"/>\n"
                               "</config>\n"
                               "<!-- end -->\n";

class ZyaxXml : public testing::Test
{
protected:
    void SetUp() override
    {
        m_tree = load(DOCUMENT);
        ASSERT_NE(m_tree, nullptr);
        m_config = find(m_tree, m_tree, "config", MXML_DESCEND);
        ASSERT_NE(m_config, nullptr);
    }

    void TearDown() override
    {
        zyax_xml_del(m_tree);
    }

    mxml_node_t *m_tree = nullptr;
    mxml_node_t *m_config = nullptr;
};

TEST_F(ZyaxXml, a_declared_document_hangs_below_its_declaration)
{
    EXPECT_STREQ(mxmlGetElement(m_tree), "?xml version=\"1.0\"?");
    EXPECT_EQ(mxmlGetParent(m_tree), nullptr);
    EXPECT_EQ(mxmlGetParent(m_config), m_tree);
}

TEST_F(ZyaxXml, texts_and_attributes_are_read)
{
    mxml_node_t *mem = find(m_config, m_config, "mem", MXML_DESCEND);
    mxml_node_t *process = find(m_config, m_config, "uprocess", MXML_DESCEND);

    ASSERT_NE(mem, nullptr);
    ASSERT_NE(process, nullptr);
    EXPECT_STREQ(mxmlGetOpaque(zyax_xml_getfirstchild(mem)), "64");
    EXPECT_EQ(zyax_xml_getfirstchild(process), nullptr);
    EXPECT_STREQ(zyax_xml_element_getattr(process, "name"), "a");
    EXPECT_STREQ(zyax_xml_element_getattr(process, "64K_inner"), "1");
    EXPECT_EQ(zyax_xml_element_getattr(process, "no"), nullptr);
}

TEST_F(ZyaxXml, a_search_visits_elements_in_document_order_and_ends)
{
    mxml_node_t *first = find(m_config, m_tree, "node", MXML_DESCEND);
    mxml_node_t *second = find(first, m_tree, "node", MXML_DESCEND);

    EXPECT_STREQ(zyax_xml_element_getattr(first, "memory"), "64");
    EXPECT_STREQ(zyax_xml_element_getattr(second, "memory"), "128");
    EXPECT_EQ(find(second, m_tree, "node", MXML_DESCEND), nullptr);
}

TEST_F(ZyaxXml, a_search_never_answers_its_start)
{
    EXPECT_EQ(find(m_config, m_tree, "config", MXML_DESCEND), nullptr);
    EXPECT_EQ(find(m_config, m_config, "config", MXML_DESCEND), nullptr);
    EXPECT_EQ(find(m_tree, m_tree, mxmlGetElement(m_tree), MXML_DESCEND), nullptr);
}

TEST_F(ZyaxXml, a_search_stays_below_its_top)
{
    mxml_node_t *first = find(m_config, m_tree, "node", MXML_DESCEND);
    mxml_node_t *umm = find(first, first, "umm", MXML_DESCEND);

    EXPECT_EQ(find(umm, umm, "node", MXML_DESCEND), nullptr);
    EXPECT_EQ(find(umm, first, "node", MXML_DESCEND), nullptr);
    EXPECT_EQ(find(first, umm, "node", MXML_NO_DESCEND), nullptr);
    EXPECT_EQ(find(m_config, umm, "umm", MXML_DESCEND), nullptr);
}

TEST_F(ZyaxXml, a_search_without_descent_passes_along_the_siblings)
{
    mxml_node_t *umm = find(m_config, m_config, "umm", MXML_DESCEND);
    mxml_node_t *first = find(umm, umm, "uprocess", MXML_DESCEND_FIRST);
    mxml_node_t *second = find(first, umm, "uprocess", MXML_NO_DESCEND);

    EXPECT_STREQ(zyax_xml_element_getattr(first, "name"), "a");
    EXPECT_STREQ(zyax_xml_element_getattr(second, "name"), "b");
    EXPECT_EQ(find(second, umm, "uprocess", MXML_NO_DESCEND), nullptr);
    EXPECT_EQ(find(m_config, m_config, "uprocess", MXML_DESCEND_FIRST), nullptr);
}

TEST_F(ZyaxXml, without_the_parent_as_top_a_search_without_descent_climbs_as_mini_xml_does)
{
    mxml_node_t *second = zyax_xml_findelement(m_config, m_config, "uprocess", "name", "b",
                                               MXML_DESCEND);
    ASSERT_NE(second, nullptr);
    mxml_node_t *climbed = find(second, m_tree, "node", MXML_NO_DESCEND);

    EXPECT_STREQ(zyax_xml_element_getattr(climbed, "memory"), "128");
    EXPECT_EQ(find(second, mxmlGetParent(second), "node", MXML_NO_DESCEND), nullptr);
}

TEST_F(ZyaxXml, a_search_may_ask_for_an_attribute_and_its_value)
{
    mxml_node_t *b = zyax_xml_findelement(m_tree, m_tree, "uprocess", "name", "b", MXML_DESCEND);
    mxml_node_t *any = zyax_xml_findelement(m_tree, m_tree, nullptr, "name", nullptr, MXML_DESCEND);

    EXPECT_STREQ(zyax_xml_element_getattr(b, "name"), "b");
    EXPECT_STREQ(zyax_xml_element_getattr(any, "name"), "a");
    EXPECT_EQ(zyax_xml_findelement(m_tree, m_tree, "node", "name", nullptr, MXML_DESCEND), nullptr);
    EXPECT_EQ(zyax_xml_findelement(m_tree, m_tree, "uprocess", "name", "c", MXML_DESCEND), nullptr);
}

TEST_F(ZyaxXml, null_arguments_answer_null)
{
    EXPECT_EQ(find(nullptr, m_tree, "config", MXML_DESCEND), nullptr);
    EXPECT_EQ(find(m_tree, nullptr, "config", MXML_DESCEND), nullptr);
    EXPECT_EQ(zyax_xml_getfirstchild(nullptr), nullptr);
    EXPECT_EQ(zyax_xml_element_getattr(nullptr, "name"), nullptr);
    EXPECT_EQ(zyax_xml_element_getattr(m_config, nullptr), nullptr);
    zyax_xml_del(nullptr);
}

TEST_F(ZyaxXml, a_text_has_no_children_and_no_attributes)
{
    mxml_node_t *mem = find(m_config, m_config, "mem", MXML_DESCEND);
    mxml_node_t *text = zyax_xml_getfirstchild(mem);

    EXPECT_EQ(zyax_xml_getfirstchild(text), nullptr);
    EXPECT_EQ(zyax_xml_element_getattr(text, "name"), nullptr);
}

TEST(ZyaxXmlLoad, a_document_without_declaration_is_its_outermost_element)
{
    mxml_node_t *tree = load("<config><node/></config>\n<!-- end -->\ntext");

    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(mxmlGetElement(tree), "config");
    EXPECT_EQ(mxmlGetParent(tree), nullptr);
    EXPECT_EQ(mxmlGetNextSibling(tree), nullptr);
    EXPECT_NE(find(tree, tree, "node", MXML_DESCEND), nullptr);
    zyax_xml_del(tree);
}

TEST(ZyaxXmlLoad, a_document_may_begin_with_a_comment_or_a_document_type)
{
    mxml_node_t *comment = load("<!-- c --><config/>");
    mxml_node_t *type = load("<!DOCTYPE config>\n<config/>");

    ASSERT_NE(comment, nullptr);
    ASSERT_NE(type, nullptr);
    EXPECT_NE(find(comment, comment, "config", MXML_DESCEND), nullptr);
    EXPECT_NE(find(type, type, "config", MXML_DESCEND), nullptr);
    zyax_xml_del(comment);
    zyax_xml_del(type);
}

TEST(ZyaxXmlLoad, a_document_hangs_below_the_callers_parent)
{
    mxml_node_t *parent = mxmlNewElement(nullptr, "parent");

    EXPECT_NE(load("<child/>", parent), nullptr);
    EXPECT_STREQ(mxmlGetElement(zyax_xml_getfirstchild(parent)), "child");
    EXPECT_EQ(load("<broken>", parent), nullptr);
    EXPECT_EQ(errno, EINVAL);
    mxmlDelete(parent);
}

TEST(ZyaxXmlLoad, what_has_no_element_is_bad)
{
    EXPECT_BAD_XML("");
    EXPECT_BAD_XML("   \n");
    EXPECT_BAD_XML("hello");
    EXPECT_BAD_XML("<?xml version=\"1.0\"?>");
    EXPECT_BAD_XML("<?xml version=\"1.0\"?>\n\n");
    EXPECT_BAD_XML("<!-- only a comment -->");
    EXPECT_BAD_XML("<?xml version=\"1.0\"?><!-- only a comment -->");
    EXPECT_BAD_XML("<!DOCTYPE config>");
}

TEST(ZyaxXmlLoad, what_is_cut_off_is_bad)
{
    EXPECT_BAD_XML("<");
    EXPECT_BAD_XML("<config name");
    EXPECT_BAD_XML("<config name=");
    EXPECT_BAD_XML("<config name='a");
    EXPECT_BAD_XML("<config>");
    EXPECT_BAD_XML("<config><node/>");
    EXPECT_BAD_XML("<?xml version=\"1.0\"?>\n<config><node></node>");
    EXPECT_BAD_XML("<?xml version=\"1.0\"?>\n<config><node></config>");
    EXPECT_BAD_XML("<config><!-- never closed");
    EXPECT_BAD_XML("<?xml version=\"1.0\"");
}

TEST(ZyaxXmlLoad, what_is_no_xml_is_bad)
{
    EXPECT_BAD_XML("<a><b></a></b>");
    EXPECT_BAD_XML("</a>");
    EXPECT_BAD_XML("<a/><b/>");
    EXPECT_BAD_XML("text<a/>");
    EXPECT_BAD_XML(" <a/>");
    EXPECT_BAD_XML("<a x='1' x='2'/>");
    EXPECT_BAD_XML("<a>\x01</a>");
    EXPECT_BAD_XML(std::string("\0\0\0\0", 4));
    EXPECT_BAD_XML("\x7f" "ELF\x02\x01\x01");
    EXPECT_BAD_XML("[section]\nkey=value\n");
}

TEST(ZyaxXmlLoad, a_descriptor_that_cannot_be_read_leaves_its_errno)
{
    const temp_folder folder;
    const int directory = open(folder.path(".").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(directory, 0);

    EXPECT_EQ(zyax_xml_loadfd(nullptr, -1, mxml_opaque_cb), nullptr);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(zyax_xml_loadfd(nullptr, directory, mxml_opaque_cb), nullptr);
    EXPECT_EQ(errno, EISDIR);
    close(directory);
}

TEST(ZyaxXmlLoad, complaints_go_to_the_log_of_whatever_thread_loads)
{
    testing::internal::CaptureStderr();
    load("<main_thread></other>");
    std::thread([] { load("<second_thread></other>"); }).join();
    zyax_log_flush();
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_NE(log.find(" zyax zyax_xml_loadfd "), std::string::npos);
    EXPECT_NE(log.find("<main_thread>"), std::string::npos);
    EXPECT_NE(log.find("<second_thread>"), std::string::npos);
}

TEST(ZyaxXmlLoad, deep_and_wide_documents_are_loaded_and_released)
{
    std::string deep;
    for (int i = 0; i < 5000; ++i)
        deep += "<a>";
    for (int i = 0; i < 5000; ++i)
        deep += "</a>";
    mxml_node_t *tree = load(deep);

    ASSERT_NE(tree, nullptr);
    zyax_xml_del(tree);
}
