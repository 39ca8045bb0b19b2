#pragma once

#include <string>
#include <vector>

/// @return whether a start script looks as if it started a server through an interpreter: "sh .../X_Server",
///         "python3 X_Server", ". .../X_Server", and not by its own name as well. The process bears the interpreter's name
///         then.
///
/// Read as a shell splits it into commands: quotes, comments, continued lines and redirections count, and words that run the
/// rest as a command ("exec", "nohup" ...) are passed over. What is in variables, functions and here-documents is not
/// known, so this is a guess. Throws only std::bad_alloc. Threads may call it at once.
/// @param paths of the files that are taken for the server: settings that "." reads may have its name, too.
bool StartsThroughInterpreter(const std::string& script, const std::string& server,
                              const std::vector<std::string>& paths);
