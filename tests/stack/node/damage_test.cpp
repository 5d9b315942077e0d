/*
 * Replicas that are not what they should be are found, with the byte; sound ones are not blamed.
 */
#include <gmock/gmock.h>

#include "node_program.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class NodeDamage : public NodeProgram
{
protected:
    /* Protects a file of three requests and a bit, and keeps the images. */
    void protect()
    {
        file_ = make_file("file", noise((3 << 20) + 1000));
        const node_result run = node({"--keep", file_});
        ASSERT_EQ(run.code, 0) << run.err;
    }

    void change_byte(const std::string &name, uint64_t offset) const
    {
        std::fstream changed(name, std::ios::in | std::ios::out | std::ios::binary);
        changed.seekg(int64_t(offset));
        const char byte = char(changed.get());
        changed.seekp(int64_t(offset));
        changed.put(char(byte ^ 1));
    }

    node_result verify() const { return node({"--verify-only", file_}); }

    void expect_found(const std::string &name, const std::string &where) const
    {
        const node_result run = verify();
        EXPECT_EQ(run.code, 1);
        EXPECT_THAT(run.err, HasSubstr("cmm_node: " + name + ": damaged at byte offset " + where));
        EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
        EXPECT_THAT(run.out, ContainsRegex("stop +clean\n"));
        EXPECT_THAT(run.out, ContainsRegex("result +failed\n"));
    }

    std::string file_;
};

TEST_F(NodeDamage, sound_replicas_verify)
{
    protect();
    const node_result run = verify();

    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("every replica equals its source"));
    EXPECT_TRUE(std::filesystem::exists(image(1, "0-file")));
}

TEST_F(NodeDamage, the_first_byte)
{
    protect();
    change_byte(image(1, "0-file"), 0);

    expect_found(image(1, "0-file"), "0: differs from byte 0 of " + file_);
}

TEST_F(NodeDamage, a_byte_of_the_second_request_in_the_second_replica)
{
    protect();
    change_byte(image(2, "0-file"), 2048 * 520 + 520 + 7);

    expect_found(image(2, "0-file"), "1065487: differs from byte 1049095 of " + file_);
}

TEST_F(NodeDamage, an_integrity_byte)
{
    protect();
    change_byte(image(1, "0-file"), 17 * 520 + 515);

    expect_found(image(1, "0-file"), "9355: integrity bytes");
}

TEST_F(NodeDamage, an_integrity_byte_of_the_second_sgl_of_a_chain)
{
    protect();
    change_byte(image(1, "0-file"), 100 * 8320 + 519);

    expect_found(image(1, "0-file"), "832519: integrity bytes");
}

TEST_F(NodeDamage, the_zeros_behind_the_file_s_end)
{
    protect();
    const uint64_t last = std::filesystem::file_size(image(1, "0-file")) - 9;
    change_byte(image(1, "0-file"), last);

    expect_found(image(1, "0-file"), std::to_string(last) + ": differs");
}

TEST_F(NodeDamage, an_image_cut_short)
{
    protect();
    std::filesystem::resize_file(image(2, "0-file"), 1000);

    expect_found(image(2, "0-file"), "1000: the image has 1000 bytes, 3195920 were expected");
}

TEST_F(NodeDamage, an_image_with_something_behind_its_end)
{
    protect();
    std::filesystem::resize_file(image(2, "0-file"), 3195921);

    expect_found(image(2, "0-file"),
                 "3195920: the image has 3195921 bytes, 3195920 were expected");
}

TEST_F(NodeDamage, a_missing_image)
{
    protect();
    std::filesystem::remove(image(2, "0-file"));
    const node_result run = verify();

    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr(image(2, "0-file") + ": No such file or directory"));
    EXPECT_THAT(run.out, ContainsRegex("leak audit +clean\n"));
}

TEST_F(NodeDamage, the_sound_replica_is_not_blamed)
{
    protect();
    change_byte(image(1, "0-file"), 100);

    EXPECT_THAT(verify().err, Not(HasSubstr("replica-2")));
}

TEST_F(NodeDamage, damage_in_both_replicas_is_told_of_both)
{
    protect();
    change_byte(image(1, "0-file"), 100);
    change_byte(image(2, "0-file"), 3000000);
    const node_result run = verify();

    EXPECT_THAT(run.err, HasSubstr("replica-1/0-file.img: damaged at byte offset 100:"));
    EXPECT_THAT(run.err, HasSubstr("replica-2/0-file.img: damaged at byte offset 3000000:"));
}

TEST_F(NodeDamage, a_source_that_has_changed_since)
{
    protect();
    change_byte(file_, 600);
    const node_result run = verify();

    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.err, HasSubstr("damaged at byte offset 608: differs from byte 600"));
}
