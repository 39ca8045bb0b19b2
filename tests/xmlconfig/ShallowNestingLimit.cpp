#include "tests/xmlconfig/ShallowNestingLimit.h"

#include "xmlconfig/XmlNestingLimit.h"

// The limit is a constant of the product; only the names of it and of the functions are exchanged here.
#define MaxElementDepth ShallowDepth
#define NestsTooDeep NestsDeeperThanShallow
#define CostOfParsing CostOfParsingShallow
#include "xmlconfig/XmlNestingLimit.cpp" // NOLINT(bugprone-suspicious-include)
