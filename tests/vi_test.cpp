// vi_test.cpp: the vi-like editor in this process; its cases are in cases/vi.txt. How the line
// makes way for program output is in e2e_vi_test.cpp.
#include <gtest/gtest.h>

#include <csignal>

#include "editor_cases.h"

class ViCases : public testing::TestWithParam<harness::Section> {};

TEST_P(ViCases, Hold) { check_cases(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, ViCases, testing::ValuesIn(harness::sections_of("vi.txt")),
                         [](const auto &test) { return test.param.name; });

TEST(ViEnd, SignalEndsTheEdit) {
    EditorTerminal terminal(harness::Fields{{"style", "vi"}});
    progdone = SIGINT;
    EXPECT_EQ(terminal.read("a").result, 0);
    EXPECT_EQ(terminal.read("", true).result, 0);
    progdone = 0;
}
