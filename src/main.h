// main.h: start-up and command line.
#pragma once

// Everything that the program `morp` does. Ends in finish or exit, never by returning.
[[noreturn]] int morp_main(int argc, char **argv);
