/*
 * Which recording is this thread's; recording.h says what one holds.
 */
#include "recording.h"

static thread_local recording *s_current;

recording *current_recording()
{
    return s_current;
}

recording_scope::recording_scope(recording *current) : before_(s_current)
{
    s_current = current;
}

recording_scope::~recording_scope()
{
    s_current = before_;
}

void recording_release(recording *done)
{
    if (done->tree != nullptr)
        zyax_xml_del(done->tree);
    done->tree = nullptr;
}
