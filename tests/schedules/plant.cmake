# cmake -D SOURCE=file -D COPY=file -D PATCH=file -P plant.cmake
#
# Writes a copy of SOURCE in which one text is replaced. PATCH holds the text and, behind a line of
# ====, what comes in its place. The text must be found exactly once: a fault that is no longer
# planted would be one that nobody looks for any more.
file(READ ${SOURCE} source)
file(READ ${PATCH} patch)
string(FIND "${patch}" "====\n" middle)
if(middle EQUAL -1)
    message(FATAL_ERROR "${PATCH} has no ==== line")
endif()
string(SUBSTRING "${patch}" 0 ${middle} text)
math(EXPR middle "${middle} + 5")
string(SUBSTRING "${patch}" ${middle} -1 replacement)

string(FIND "${source}" "${text}" first)
string(FIND "${source}" "${text}" last REVERSE)
if(first EQUAL -1 OR NOT first EQUAL last)
    message(FATAL_ERROR "the text of ${PATCH} is not found exactly once in ${SOURCE}")
endif()
string(REPLACE "${text}" "${replacement}" source "${source}")
file(WRITE ${COPY} "${source}")
