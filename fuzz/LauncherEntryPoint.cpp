// The program's own entry point, under a name that a fuzz target can call.
#define main WyvernMain
#include "launcher/main.cpp" // NOLINT(bugprone-suspicious-include)
