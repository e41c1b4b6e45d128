// morp.cpp: the program; all of it is in the library that the tests link too.
#include "main.h"

int main(int argc, char **argv) { return morp_main(argc, argv); }
