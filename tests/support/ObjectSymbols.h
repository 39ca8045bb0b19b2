#pragma once

#include <cstdio>
#include <memory>
#include <set>
#include <string>

/// The names that object files, or the members of archives, leave to others to define.
///
/// Read by readelf, which sees the ordinary code of an object file; nm sees the compiler's own form of it first, where
/// the object file carries one for whole-program optimisation.
/// @param files quoted for the shell, with blanks between.
/// @param source only files made from this source file count; empty: all.
inline std::set<std::string> UndefinedSymbols(const std::string& files, const std::string& source = "") {
    // WYVERN_READELF is set by tests/CMakeLists.txt.
    const std::string command = "'" WYVERN_READELF "' --syms --wide " + files;
    const std::unique_ptr<FILE, int (*)(FILE*)> readelf(popen(command.c_str(), "r"), pclose);
    std::set<std::string> symbols;
    bool counts = source.empty();
    char line[4096];
    while (readelf != nullptr && std::fgets(line, sizeof line, readelf.get()) != nullptr) {
        const std::string text(line, std::string(line).find_last_not_of(" \n") + 1);
        const size_t undefined = text.find(" UND ");
        if (text.rfind("File: ", 0) == 0) {
            counts = source.empty() || text.find(source) != std::string::npos;
        } else if (counts && undefined != std::string::npos) {
            symbols.insert(text.substr(undefined + 5));
        }
    }
    return symbols;
}
