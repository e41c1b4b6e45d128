// e2e_vi_test.cpp: the vi-like editor in the whole program; its sessions are in
// cases/e2e_vi.txt, the commands one by one in vi_test.cpp.
#include <gtest/gtest.h>

#include "harness/script.h"

using harness::Section;

class ViSessions : public testing::TestWithParam<Section> {};

TEST_P(ViSessions, GoAsWritten) { harness::check_sessions(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, ViSessions, testing::ValuesIn(harness::sections_of("e2e_vi.txt")),
                         [](const auto &test) { return test.param.name; });
