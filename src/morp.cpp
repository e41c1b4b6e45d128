#include "main.h"

int main(int argc, char **argv) { return morp_main(argc, argv); }
