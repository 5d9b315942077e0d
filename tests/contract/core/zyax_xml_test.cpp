/*
 * XML trees: loading, and where each kind of search goes.
 */
#include <gtest/gtest.h>

#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

#include "under_test.h"
#include "zyax_xml.h"

namespace
{

/* A file in memory, at its beginning. */
class memory_file
{
public:
    explicit memory_file(const std::string &text) : fd_(memfd_create("document", 0))
    {
        EXPECT_EQ(write(fd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        lseek(fd_, 0, SEEK_SET);
    }

    ~memory_file()
    {
        close(fd_);
    }

    int fd() const
    {
        return fd_;
    }

private:
    int fd_;
};

mxml_node_t *load(const std::string &text)
{
    const memory_file file(text);
    return zyax_xml_loadfd(nullptr, file.fd(), MXML_OPAQUE_CALLBACK);
}

class XmlTree : public testing::Test
{
protected:
    XmlTree()
        : tree(load("<root><a id=\"1\"><c id=\"4\">text</c></a><b id=\"2\"/><a id=\"3\"/></root>"))
    {
        first_a = find(tree, tree, "a", MXML_DESCEND);
    }

    ~XmlTree() override
    {
        zyax_xml_del(tree);
    }

    static mxml_node_t *find(mxml_node_t *from, mxml_node_t *top, const char *name, int descend)
    {
        return zyax_xml_findelement(from, top, name, nullptr, nullptr, descend);
    }

    static std::string id_of(mxml_node_t *element)
    {
        const char *const id = zyax_xml_element_getattr(element, "id");
        return id != nullptr ? id : "none";
    }

    mxml_node_t *tree;
    mxml_node_t *first_a = nullptr;
};

} // namespace

TEST_F(XmlTree, search_never_answers_the_element_that_it_starts_from)
{
    EXPECT_EQ(find(tree, tree, "root", MXML_DESCEND), nullptr);
    EXPECT_EQ(id_of(find(first_a, tree, "a", MXML_DESCEND)), "3");
}

TEST_F(XmlTree, descending_search_goes_in_document_order)
{
    mxml_node_t *const b = find(tree, tree, "b", MXML_DESCEND);
    EXPECT_EQ(id_of(first_a), "1");
    EXPECT_EQ(id_of(find(tree, tree, "c", MXML_DESCEND)), "4");
    EXPECT_EQ(id_of(b), "2");
    EXPECT_EQ(id_of(find(b, tree, "a", MXML_DESCEND)), "3");
    EXPECT_EQ(find(b, tree, "c", MXML_DESCEND), nullptr);
}

TEST_F(XmlTree, search_without_descent_sees_later_siblings_only)
{
    mxml_node_t *const second_a = find(first_a, tree, "a", MXML_NO_DESCEND);
    EXPECT_EQ(id_of(second_a), "3");
    EXPECT_EQ(id_of(find(first_a, tree, "b", MXML_NO_DESCEND)), "2");
    EXPECT_EQ(find(first_a, tree, "c", MXML_NO_DESCEND), nullptr);
    EXPECT_EQ(find(second_a, tree, "b", MXML_NO_DESCEND), nullptr);
}

TEST_F(XmlTree, search_with_the_parent_as_top_never_leaves_the_parent)
{
    mxml_node_t *const c = find(tree, tree, "c", MXML_DESCEND);
    EXPECT_EQ(find(c, first_a, "b", MXML_NO_DESCEND), nullptr);
    EXPECT_EQ(find(c, first_a, "b", MXML_DESCEND), nullptr);
}

TEST_F(XmlTree, search_of_the_first_level_does_not_go_deeper)
{
    EXPECT_EQ(id_of(find(tree, tree, "b", MXML_DESCEND_FIRST)), "2");
    EXPECT_EQ(find(tree, tree, "c", MXML_DESCEND_FIRST), nullptr);
}

TEST_F(XmlTree, search_by_attribute_needs_no_name)
{
    EXPECT_EQ(id_of(zyax_xml_findelement(tree, tree, nullptr, "id", "2", MXML_DESCEND)), "2");
}

TEST_F(XmlTree, search_by_value_needs_the_very_value)
{
    EXPECT_EQ(id_of(zyax_xml_findelement(tree, tree, "a", "id", "3", MXML_DESCEND)), "3");
    EXPECT_EQ(zyax_xml_findelement(tree, tree, "a", "id", "2", MXML_DESCEND), nullptr);
}

TEST_F(XmlTree, search_by_an_attribute_that_nothing_has_finds_nothing)
{
    EXPECT_EQ(zyax_xml_findelement(tree, tree, "a", "name", nullptr, MXML_DESCEND), nullptr);
}

TEST_F(XmlTree, first_child_is_the_text_of_an_element_with_text)
{
    mxml_node_t *const text = zyax_xml_getfirstchild(find(tree, tree, "c", MXML_DESCEND));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(mxmlGetOpaque(text), "text");
}

TEST_F(XmlTree, element_without_content_has_no_first_child)
{
    EXPECT_EQ(zyax_xml_getfirstchild(find(tree, tree, "b", MXML_DESCEND)), nullptr);
}

TEST_F(XmlTree, attribute_that_is_not_there_is_null)
{
    EXPECT_EQ(zyax_xml_element_getattr(first_a, "name"), nullptr);
}

TEST(XmlAttribute, name_may_begin_with_a_digit)
{
    mxml_node_t *const tree = load("<cache 64K_inner=\"12\"/>");
    ASSERT_NE(tree, nullptr);
    EXPECT_STREQ(zyax_xml_element_getattr(tree, "64K_inner"), "12");
    zyax_xml_del(tree);
}

TEST(XmlLoad, of_a_closed_descriptor_fails_with_its_reason)
{
    errno = 0;
    EXPECT_EQ(zyax_xml_loadfd(nullptr, -1, MXML_OPAQUE_CALLBACK), nullptr);
    EXPECT_EQ(errno, EBADF);
}

TEST(XmlLoad, of_an_element_that_is_not_closed_fails_as_bad_xml)
{
    errno = 0;
    EXPECT_EQ(load("<root><a></root>"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(XmlLoad, of_a_file_that_ends_early_fails_as_bad_xml)
{
    errno = 0;
    EXPECT_EQ(load("<root><a>"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(XmlLoad, of_an_empty_file_fails_as_bad_xml)
{
    errno = 0;
    EXPECT_EQ(load(""), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(XmlLoad, of_bad_xml_is_complained_about_in_the_log)
{
    EXPECT_GE(error_lines_of([] { load("<root><a></root>"); }), 1u);
}

TEST(XmlDelete, of_no_tree_does_nothing)
{
    zyax_xml_del(nullptr);
}
