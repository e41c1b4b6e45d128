// morp.cpp: the program; all of it is in the library that the tests link too.
#include "main.h"

// Beside the modules' own, for what(1) and strings(1). CMakeLists.txt says which version it is.
[[gnu::used, gnu::retain]] static const char kVersion[] = "@(#)morp " MORP_VERSION;

int main(int argc, char **argv) { return morp_main(argc, argv); }
