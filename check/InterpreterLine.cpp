#include "check/InterpreterLine.h"

#include <algorithm>

namespace {

constexpr const char* Blanks = " \t";
constexpr const char* ByteOrderMark = "\xEF\xBB\xBF";

std::string WithoutCarriageReturn(const std::string& text) {
    return !text.empty() && text.back() == '\r' ? text.substr(0, text.size() - 1) : text;
}

// The first word of an argument of env that is neither an option nor an assignment.
std::string EnvProgram(const std::string& argument) {
    size_t start = argument.find_first_not_of(Blanks);
    while (start != std::string::npos) {
        const size_t end = std::min(argument.find_first_of(Blanks, start), argument.size());
        std::string word = argument.substr(start, end - start);
        if (word.front() != '-' && word.find('=') == std::string::npos) {
            return word;
        }
        start = argument.find_first_not_of(Blanks, end);
    }
    return {};
}

} // namespace

std::string InterpreterLine::program() const {
    return WithoutCarriageReturn(goesThroughEnv() ? EnvProgram(argument) : interpreter);
}

bool InterpreterLine::goesThroughEnv() const {
    const std::string path = WithoutCarriageReturn(interpreter);
    return path.substr(path.find_last_of('/') + 1) == "env";
}

InterpreterLine ReadInterpreterLine(const std::string& head) {
    InterpreterLine line;
    std::string text = head.substr(0, InterpreterLine::KernelBuffer);
    if (text.compare(0, 3, ByteOrderMark) == 0 && text.compare(3, 2, "#!") == 0) {
        line.hasByteOrderMark = true;
        text.erase(0, 3);
    }
    if (text.compare(0, 2, "#!") != 0) {
        return line;
    }
    const size_t end = text.find_first_of(std::string("\n\0", 2));
    line.isCut = end == std::string::npos && head.size() > InterpreterLine::KernelBuffer;
    text = text.substr(2, end == std::string::npos ? end : end - 2);
    line.hasCarriageReturn = !text.empty() && text.back() == '\r';

    const size_t start = text.find_first_not_of(Blanks);
    if (start == std::string::npos) {
        return line;
    }
    const size_t stop = std::min(text.find_first_of(Blanks, start), text.size());
    line.isPresent = true;
    line.interpreter = text.substr(start, stop - start);
    const size_t rest = text.find_first_not_of(Blanks, stop);
    if (rest != std::string::npos) {
        line.argument = text.substr(rest, text.find_last_not_of(Blanks) + 1 - rest);
    }
    return line;
}
