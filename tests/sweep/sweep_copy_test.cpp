/*
 * The six copies: any piece that cannot be copied ends the copy, in whichever entry it lies.
 */
#include "sweep_node.h"

using namespace sweep_node;

namespace
{

/* Three entries in either measure, the first and last of them in part. */
constexpr uint32_t OFFSET = 8000;
constexpr uint32_t LENGTH = 9000;

char buffer[LENGTH];

operation copy(const char *name, std::string (*call)())
{
    return {
        .name = name,
        .scene = pages_and_a_chain,
        .call = call,
        .clean = "0",
        .stops = {ends("-1", {OP_memcpy_s})},
    };
}

} // namespace

const std::vector<operation> &copy_operations()
{
    static const std::vector<operation> rows = {
        copy(EXPORTED(copyDataFromBufferToSgl),
             [] { return told(copyDataFromBufferToSgl(chain, OFFSET, buffer, LENGTH)); }),
        copy(EXPORTED(copyDataFromSglToBuffer),
             [] { return told(copyDataFromSglToBuffer(chain, OFFSET, buffer, LENGTH)); }),
        copy(EXPORTED(copyDataFromBufferToSglIgnoreDif),
             [] { return told(copyDataFromBufferToSglIgnoreDif(chain, OFFSET, buffer, LENGTH)); }),
        copy(EXPORTED(copyDataFromSglToBufferIgnoreDif),
             [] { return told(copyDataFromSglToBufferIgnoreDif(chain, OFFSET, buffer, LENGTH)); }),
        copy(EXPORTED(copyDataFromBufferToEntryIgnoreDif),
             [] {
                 return told(
                     copyDataFromBufferToEntryIgnoreDif(&chain->entries[0], 500, buffer, 1600));
             }),
        copy(EXPORTED(copyDataFromEntryToBufferIgnoreDif),
             [] {
                 return told(
                     copyDataFromEntryToBufferIgnoreDif(&chain->entries[0], 500, buffer, 1600));
             }),
    };
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Copy, Sweep, ::testing::ValuesIn(copy_operations()), row_name);
