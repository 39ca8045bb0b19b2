#include "runtime/BaseSafePointer.h"

#include "runtime/WyRuntimeError.h"

#include <cstdio>
#include <string>

void BaseSafePointer::reportMisuse(const char* typeName, const char* message) {
    const std::string text = std::string("SafePointer Report:") + typeName + " " + message;
    // A console that cannot be written to changes nothing: the exception carries the text too.
    static_cast<void>(std::puts(text.c_str()));
    static_cast<void>(std::fflush(stdout));
    throw WyRuntimeError(text);
}
