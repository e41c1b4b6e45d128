// editors_test.cpp: the editors in this process; their cases are in cases/emacs.txt and vi.txt. How
// the line makes way for program output is in e2e_sessions_test.cpp.
#include <gtest/gtest.h>

#include <csignal>

#include "editor_cases.h"

class Editors : public testing::TestWithParam<harness::Section> {};

TEST_P(Editors, DoAsWritten) { check_cases(GetParam()); }

INSTANTIATE_TEST_SUITE_P(emacs, Editors, testing::ValuesIn(harness::sections_of("emacs.txt")),
                         harness::kNamed);
INSTANTIATE_TEST_SUITE_P(vi, Editors, testing::ValuesIn(harness::sections_of("vi.txt")),
                         harness::kNamed);

TEST(EditorsEnd, AtASignal) {
    for (const char *style : {"emacs", "vi"}) {
        SCOPED_TRACE(style);
        EditorTerminal terminal(harness::Fields{{"style", style}});
        progdone = SIGINT;
        EXPECT_EQ(terminal.read("a").result, 0);
        EXPECT_EQ(e_row_stale, 1);
        EXPECT_EQ(terminal.read("", true).result, 0);
        progdone = 0;
    }
}
