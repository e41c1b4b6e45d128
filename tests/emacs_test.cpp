// emacs_test.cpp: the emacs-like editor in this process; its cases are in cases/emacs.txt. How the
// line makes way for program output is in e2e_emacs_test.cpp.
#include <gtest/gtest.h>

#include <csignal>

#include "editor_cases.h"

class EmacsCases : public testing::TestWithParam<harness::Section> {};

TEST_P(EmacsCases, Hold) { check_cases(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, EmacsCases, testing::ValuesIn(harness::sections_of("emacs.txt")),
                         [](const auto &test) { return test.param.name; });

TEST(EmacsEnd, SignalEndsTheEdit) {
    EditorTerminal terminal(harness::Fields{{"style", "emacs"}});
    progdone = SIGINT;
    EXPECT_EQ(terminal.read("a\r").result, 0);
    progdone = 0;
    EXPECT_EQ(e_row_stale, 1);
}
