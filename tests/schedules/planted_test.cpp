/*
 * A copy of the protocol with one fault in it, which the exploration must find; the fault and what
 * it must be found by are in CMakeLists.txt.
 */
#include "retry_scenarios.h"

TEST(Planted, fault_is_found)
{
    const std::string wanted = PLANTED_FAILURE; /* "scenario: what it failed of" */
    for (const schedule::scenario &each : scenarios::all()) {
        if (wanted.rfind(each.name + ": ", 0) != 0)
            continue;
        const schedule::outcome found = schedule::explore(each);
        EXPECT_EQ(found.failure, wanted) << found.trace;
        return;
    }
    ADD_FAILURE() << "no scenario of that name";
}
