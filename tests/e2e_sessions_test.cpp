// e2e_sessions_test.cpp: the whole program, session by session, as cases/e2e_*.txt have them.
#include <gtest/gtest.h>

#include "harness/script.h"

class Sessions : public testing::TestWithParam<harness::Section> {};

TEST_P(Sessions, GoAsWritten) { harness::check_sessions(GetParam()); }

#define SESSIONS(name)                                                                     \
    INSTANTIATE_TEST_SUITE_P(name, Sessions,                                               \
                             testing::ValuesIn(harness::sections_of("e2e_" #name ".txt")), \
                             harness::kNamed)
SESSIONS(start);
SESSIONS(relay);
SESSIONS(jobs);
SESSIONS(faults);
SESSIONS(floods);
SESSIONS(output);
SESSIONS(programs);
SESSIONS(emacs);
SESSIONS(vi);
SESSIONS(extended);
SESSIONS(row);
SESSIONS(complete);
