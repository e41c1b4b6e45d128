// e2e_emacs_test.cpp: the emacs-like editor in the whole program; its sessions are in
// cases/e2e_emacs.txt, the commands one by one in emacs_test.cpp.
#include <gtest/gtest.h>

#include "harness/script.h"

using harness::Section;

class EmacsSessions : public testing::TestWithParam<Section> {};

TEST_P(EmacsSessions, GoAsWritten) { harness::check_sessions(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, EmacsSessions, testing::ValuesIn(harness::sections_of("e2e_emacs.txt")),
                         [](const auto &test) { return test.param.name; });
