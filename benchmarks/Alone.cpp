#include "benchmarks/Company.h"

const char* const Company = "alone";
